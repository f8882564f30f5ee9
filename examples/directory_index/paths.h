// What the host and the components agree on; they know nothing else of each other.
//
//     file.found.<extension>   \ one broadcast to both paths for each regular file,
//     file.size.<magnitude>    / with "path" and "size"
//     file.unreadable          a file or folder that cannot be read: "path", "reason"
//     gone.file.<extension>    what was found is so no more: "path", "size". When a file
//     gone.unreadable          has changed, this comes first and then one of the above
//     lines.counted.<extension>  a text file was read: "path", "lines"
//     gone.lines.<extension>   that count is so no more
//     walk.working             a component is at a large file: no news, but alive
//     walk.interrupted         the user does not want to wait any longer: who is at a large
//                              file leaves it, who has files to read still reads no more
//     walk.ended               nothing more will be found, until a watched folder changes
//     work.flush               who works asynchronously answers at once with
//     work.pending             and, when all that came before is done, with
//     work.flushed
//     watch.changed            to the host itself: it is time to look at what has changed
//     index.changed            answers of before may be wrong now
//
// Events have no payload. Requests, with the types in payloads.h:
//
//     index.lookup             which files have a word? Who does not know the word declines
//     index.<other>            is explained to be unknown
//
// and a snowball:
//
//     report.build             each component adds its section
//
// <extension> is the last part of the file name in lower case
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
inline const std::string gone = "gone.file."; // an extension follows
inline const std::string any_gone = "gone.file.*";
inline const std::string unreadable_gone = "gone.unreadable";
inline const std::string lines = "lines.counted."; // an extension follows
inline const std::string any_lines = "lines.counted.*";
inline const std::string lines_gone = "gone.lines."; // an extension follows
inline const std::string any_lines_gone = "gone.lines.*";
inline const std::string walk_working = "walk.working";
inline const std::string walk_interrupted = "walk.interrupted";
inline const std::string walk_ended = "walk.ended";
inline const std::string work_flush = "work.flush";
inline const std::string work_pending = "work.pending";
inline const std::string work_flushed = "work.flushed";
inline const std::string index_changed = "index.changed";
inline const std::string index_lookup = "index.lookup";
inline const std::string index_questions = "index."; // the name of one follows
inline const std::string any_index_question = "index.*";
inline const std::string report_build = "report.build";
inline const std::string watch_changed = "watch.changed";
} // namespace paths

namespace parameter {
inline const std::string path = "path";     // text
inline const std::string size = "size";     // number of bytes
inline const std::string reason = "reason"; // text
inline const std::string lines = "lines";   // number
inline const std::string word = "word";     // text, of a lookup: for messages
} // namespace parameter

} // namespace directory_index
