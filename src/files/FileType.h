#pragma once
// The table of scan file types by extension, shared by the file functions.
#include <tavrin/Files.h>

#include <map>
#include <string>
#include <unordered_map>

namespace tavrin {

// Extension text (lower case, without the ".") of every file type, in value
// order. Initialised when the library is loaded.
extern const std::map<FileType, std::string> FileTypeExtensions;

// Extension text -> file type: built once from FileTypeExtensions on first
// use (thread-safe), read-only afterwards.
const std::unordered_map<std::string, FileType>& ExtensionFileTypes();

}  // namespace tavrin
