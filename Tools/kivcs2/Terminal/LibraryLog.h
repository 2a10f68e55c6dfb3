// The library's messages while the command runs.
#ifndef KIV_TOOL_LIBRARY_LOG_H
#define KIV_TOOL_LIBRARY_LOG_H

namespace tool
{

/// Passes on the first messages of the library and counts the rest: a file of many bad lines causes one
/// for each. Like the library itself, writes them to the system log and, with KIV_LOG_STDERR=1, to standard
/// error.
void capLibraryLog();

/// Logs the number of omitted messages, if there are any.
void tellLeftOutMessages();

} // namespace tool

#endif
