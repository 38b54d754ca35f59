#pragma once
// Output files appear whole or not at all.
#include <functional>
#include <string>

namespace tavrin_tool {

// Calls `write` with a hidden temporary name in the directory of `path` that
// keeps its extension (writers choose the format by it). When `write` returns
// true the temporary file is renamed over `path` (atomic within one file
// system); when it returns false or throws, the temporary file is removed and
// a ToolError naming `what` is thrown. While a write is under way, SIGINT and
// SIGTERM remove the temporary file before the process ends, so an
// interrupted run leaves neither a half-written `path` nor litter.
// Creates missing parent directories. Not reentrant: one write at a time.
void WriteAtomically(const std::string& path, const std::string& what,
                     const std::function<bool(const std::string& temporaryPath)>& write);

// Creates `directory` and its parents when missing; ToolError on failure.
void EnsureDirectory(const std::string& directory);

}  // namespace tavrin_tool
