#pragma once
// Entry functions of the fuzz targets, one per parser. Each Run* function
// feeds one input to its parser, aborts on a broken invariant and returns
// whether the parser accepted the input; each Fuzz* function is the libFuzzer
// form of it (always 0). The libFuzzer programs in this folder call the
// Fuzz* functions; tests/files/fuzz_regression_test.cpp replays the seed
// corpora under tests/data/fuzz/<format>/ and deterministic mutations of
// them through the same functions, so every compiler's sanitizer build
// exercises them too. The ".zelk" and ".praw" targets also mutate by the
// format's structure (StructureMutators.h; CustomMutator.h for libFuzzer).
//
// target          parser                                       corpus
// ply_reader      pho_ply_io::PointCloud(path)                 ply
// rply            the RPly C interface                         ply
// obj_info        pho_ply_io::ParseObjInfo                     obj_info
// zelk_importer   zelk::Importer::LoadMemory, then the
//                 conversion to a Photoneo PLY point cloud     zelk
// zelk_ply_import zelk::Importer::LoadFile on PLY files         ply
// praw_reader     pho::sim::ReadPraw                           praw
// import_praw     tavrin::ImportPraw                           praw
// space_binary    utils::BasisDefinition / SpaceDefinition::ReadBinary  space_binary
#include "ImportPrawTarget.h"
#include "ObjInfoTarget.h"
#include "PlyReaderTarget.h"
#include "PrawReaderTarget.h"
#include "RplyTarget.h"
#include "SpaceBinaryTarget.h"
#include "ZelkImporterTarget.h"
#include "ZelkPlyImportTarget.h"
