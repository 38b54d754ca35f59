#pragma once
// Reading and writing scan files for the subcommands.
#include <tavrin/ColorOutput.h>

#include <zelk/Scan.h>

#include <string>

namespace tavrin_tool {

enum class ScanFormat { Ply, Zelk, Praw };

// Texture of a written Photoneo PLY. Auto takes the colours when the scan has
// them, else the intensities, else none.
enum class TextureChoice { Auto, None, Intensity, Color };

// The format an output path asks for by its extension (case-insensitive).
// ToolError for any other extension, and for ".praw" unless `allowPraw`.
ScanFormat OutputFormatOf(const std::string& path, bool allowPraw);

tavrin::ColorOutput ResolveTexture(TextureChoice choice, const zelk::Scan& scan);

// Any file the library imports (Photoneo PLY, .praw, .zelk). ToolError with
// the reason when the file is missing, of an unknown type or unreadable.
void LoadScan(const std::string& path, zelk::Scan& scan);

// Writes a ".ply" (Photoneo PLY) or ".zelk" file atomically; ToolError on failure.
void SaveScan(const std::string& path, const zelk::Scan& scan, TextureChoice texture);

}  // namespace tavrin_tool
