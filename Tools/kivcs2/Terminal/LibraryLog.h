// The library's messages, while the command runs.
#ifndef KIV_TOOL_LIBRARY_LOG_H
#define KIV_TOOL_LIBRARY_LOG_H

namespace tool
{

/// Hands on the first messages of the library and counts the rest: a file of many bad lines has one for each.
/// They go where the library would send them, to the system log and, with KIV_LOG_STDERR=1, to standard
/// error.
void capLibraryLog();

/// One message that tells how many were left out, if any were.
void tellLeftOutMessages();

} // namespace tool

#endif
