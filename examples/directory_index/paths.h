// What the host and the components agree on; they know nothing else of each other.
//
//     file.found.<extension>   \ one broadcast to both paths for each regular file,
//     file.size.<magnitude>    / with "path" and "size"
//     file.unreadable          a file or folder that cannot be read: "path", "reason"
//     lines.counted.<extension>  a text file was read: "path", "lines"
//     walk.working             a component is at a large file: no news, but alive
//     walk.ended               nothing more will be found
//
// Payloads are null. <extension> is the last part of the file name in lower case
// and empty for a name without one; <magnitude> is a word of magnitude_of (file_kind.h).
#pragma once

#include <string>

namespace directory_index {

namespace paths {
inline const std::string any_file = "file.*";
inline const std::string found = "file.found."; // an extension follows
inline const std::string any_found = "file.found.*";
inline const std::string size = "file.size."; // a magnitude follows
inline const std::string any_size = "file.size.*";
inline const std::string unreadable = "file.unreadable";
inline const std::string lines = "lines.counted."; // an extension follows
inline const std::string any_lines = "lines.counted.*";
inline const std::string walk_working = "walk.working";
inline const std::string walk_ended = "walk.ended";
} // namespace paths

namespace parameter {
inline const std::string path = "path";     // text
inline const std::string size = "size";     // number of bytes
inline const std::string reason = "reason"; // text
inline const std::string lines = "lines";   // number
} // namespace parameter

} // namespace directory_index
