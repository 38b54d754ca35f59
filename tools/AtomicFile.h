#pragma once
// Output files appear whole or not at all.
#include <functional>
#include <string>

namespace tavrin_tool {

// Calls `write` with a hidden temporary name in the directory of `path` that
// keeps its extension (writers choose the format by it). When `write` returns
// true the temporary file is renamed over `path` (atomic within one file
// system); when it returns false or throws, the temporary file is removed and
// a ToolError naming `what` is thrown (with the system's reason when the
// directory cannot be written). An interruption removes the temporary file
// (Interrupt.h), so an interrupted run leaves neither a half-written `path`
// nor litter. Creates missing parent directories. Not reentrant: one write at
// a time.
// `onWritten` runs right after the rename with interruptions held back, so
// an interruption counts a file as done exactly when it is there.
void WriteAtomically(const std::string& path, const std::string& what,
                     const std::function<bool(const std::string& temporaryPath)>& write,
                     const std::function<void()>& onWritten = {});

// Creates `directory` and its parents when missing; ToolError on failure.
void EnsureDirectory(const std::string& directory);

}  // namespace tavrin_tool
