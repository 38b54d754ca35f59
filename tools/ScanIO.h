#pragma once
// Reading and writing scan files for the subcommands.
#include <zelk/Scan.h>

#include <functional>
#include <string>

namespace tavrin_tool {

enum class ScanFormat { Ply, Zelk, Praw };

// Texture of a written PLY (policy in Texture.h). Auto takes the colours when
// the scan has them, else the intensities, else none.
enum class TextureChoice { Auto, None, Intensity, Color };

// How a ".ply" output is written; ".zelk" files are exact and ignore this.
struct PlyOptions {
  TextureChoice texture = TextureChoice::Auto;
  bool unordered = false;  // measured points only, a plain PLY that is not organised
  bool ascii = false;
};

// The space a file that cannot state one is given on reading (--space).
enum class InputSpace { Unstated, Camera, Marker };

// The format an output path asks for by its extension (case-insensitive).
// ToolError for any other extension, and for ".praw" unless `allowPraw`.
ScanFormat OutputFormatOf(const std::string& path, bool allowPraw);

// Refuses, with one ToolError that names the cause, a path that is missing,
// a directory, unreadable (the system's reason), of an unknown type or empty.
void CheckReadable(const std::string& path);

// The "RPly: ..." lines of text collected from standard error, joined by
// "; "; the other lines are written back to standard error.
std::string RplyMessages(const std::string& captured);

// Any file the library imports (Photoneo PLY, .praw, .zelk, other PLY, OBJ,
// STL, DAE, FBX), with a Photoneo PLY's colours restored (Texture.h). A scan
// without a space gets `space`; a file that states another space than
// `space` is refused. ToolError with the reason (CheckReadable, then what
// the reader said: RPly's message folded in, the library's last line).
void LoadScan(const std::string& path, zelk::Scan& scan, InputSpace space = InputSpace::Unstated);

// Writes a ".ply" or ".zelk" file atomically; ToolError on failure, and for a
// ".ply" of a scan without a space (the error names --space).
// `onWritten` as in WriteAtomically.
void SaveScan(const std::string& path, const zelk::Scan& scan, const PlyOptions& ply,
              const std::function<void()>& onWritten = {});

}  // namespace tavrin_tool
