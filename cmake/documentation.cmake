# The man pages, and what the packages put into /usr/share/doc. Compressed as Debian wants it,
# without names and times in the files, so that two builds make the same.

set(compressed_files)

# compress(FILE RESULT)
function(compress file result)
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/${result}
        COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/${file} >${PROJECT_BINARY_DIR}/${result}
        DEPENDS ${PROJECT_SOURCE_DIR}/${file})
    set(compressed_files ${compressed_files} ${PROJECT_BINARY_DIR}/${result} PARENT_SCOPE)
endfunction()

compress(tools/inspect/event_routing_inspect.1 event_routing_inspect.1.gz)
if(TARGET event_routing_nats)
    compress(tools/bridge/event_routing_bridge.1 event_routing_bridge.1.gz)
endif()
compress(CHANGELOG.md changelog.gz)
add_custom_target(documentation DEPENDS ${compressed_files})
add_dependencies(event_routing_inspect documentation) # is all that `./dev package` builds

install(FILES ${PROJECT_BINARY_DIR}/event_routing_inspect.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(${component}_doc ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    install(FILES ${PROJECT_BINARY_DIR}/changelog.gz
        DESTINATION ${${component}_doc} COMPONENT ${component})
endforeach()
# README, and where its links lead to.
install(FILES README.md CONTRIBUTING.md CHANGELOG.md
    DESTINATION ${development_doc} COMPONENT development)
install(DIRECTORY docs DESTINATION ${development_doc} COMPONENT development
    FILES_MATCHING PATTERN "*.md" PATTERN "*.schema.json")
install(FILES docs/inspect.md DESTINATION ${tools_doc} COMPONENT tools)
if(TARGET event_routing_nats)
    install(FILES docs/bridge.md docs/bridge.schema.json DESTINATION ${nats_doc} COMPONENT nats)
    install(FILES ${PROJECT_BINARY_DIR}/event_routing_bridge.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT nats)
endif()
