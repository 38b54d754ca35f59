#pragma once
// Readers of the scan files other programs write (PLY, OBJ, STL, DAE, FBX),
// behind Importer::LoadFile. Each turns the file's vertices into one
// unorganised scan: point i at cell (i, 0) of an N x 1 grid, with NORMALS and
// COLORS when the file has them; no camera, no timestamp, no space (these
// formats cannot state one).
#include <zelk/Importer.h>
#include <zelk/Scan.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zelk {
namespace foreign {

// Importer::LoadFile: checks the path, picks the reader by the file's first
// bytes and its extension, reads the file's scans into `scans`, and logs one
// line (component "zelk::Importer") that says why a file cannot be loaded.
bool LoadFileByType(const std::string& path, std::vector<Scan>& scans);

// PLY from any writer: ASCII, binary little- or big-endian; any scalar type
// for coordinates, normals (nx ny nz) and colours (red green blue, or
// diffuse_red ...; integers scaled from their type's range, floats taken as
// 0..1). Faces and other elements are read through and ignored. `fileSize`
// bounds what the header may announce. False with `reason` (a short phrase
// for the log line) when the file cannot be read whole.
bool ReadPly(const std::string& path, std::uintmax_t fileSize, Scan& scan, std::string& reason);

// OBJ, STL, DAE and FBX through Assimp: the vertices of every mesh, placed by
// the scene's node transforms (a mesh no node uses, such as the vertices of
// an OBJ without faces, as it is), each distinct position once in first-seen
// order (a mesh repeats a position at every face that uses it). Normals and
// colours only when every mesh has them. False with `reason`.
bool ReadMesh(const std::string& path, Scan& scan, std::string& reason);

// Prepares `scan` as an N x 1 grid of `count` points (0 < count <
// INVALID_INDEX) with the properties asked for; positions and property
// elements are left for the caller to write, all of them. One allocation per
// array.
void StartUnorganisedScan(Scan& scan, std::uint32_t count, bool normals, bool colors);

}  // namespace foreign
}  // namespace zelk
