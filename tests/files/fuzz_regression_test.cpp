// Runs every fuzz target's entry function over a seed corpus and a few
// thousand deterministic mutations of it, so that the sanitizer builds of
// every compiler exercise the parsers (the libFuzzer programs need clang).
#include "../../fuzz/FuzzTargets.h"

#include "FilesTestSupport.h"
#include "support/PlyBuilder.h"

#include <zelk/Exporter.h>

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

using tavrin_test::BuildPly;
using tavrin_test::PlyContent;
using tavrin_test::PlyEncoding;
using Target = std::function<int(const std::uint8_t*, std::size_t)>;

constexpr int kMutationsPerTarget = 3000;

// One mutation: byte flips, insertions, deletions, truncation, a copied
// chunk, or an interesting value written over a few bytes.
std::string Mutate(const std::string& seed, std::mt19937& random) {
  std::string s = seed;
  const int steps = 1 + static_cast<int>(random() % 4);
  for (int step = 0; step < steps; ++step) {
    const std::size_t at = s.empty() ? 0 : random() % s.size();
    switch (random() % 7) {
      case 0:
        if (!s.empty()) s[at] = static_cast<char>(s[at] ^ (1u << (random() % 8)));
        break;
      case 1:
        s.insert(at, 1 + random() % 4, static_cast<char>(random()));
        break;
      case 2:
        s.erase(at, 1 + random() % 8);
        break;
      case 3:
        s.resize(at);
        break;
      case 4: {
        const std::size_t from = s.empty() ? 0 : random() % s.size();
        s.insert(at, s.substr(from, 1 + random() % 32));
        break;
      }
      case 5: {
        static const char* const kWords[] = {"0", "-1", "4294967295", "99999999999", "nan", "(", ")", ";", "=",
                                             "\xff\xff\xff\x7f", "\n", "\r\n", "list", "element vertex 3\n"};
        s.insert(at, kWords[random() % (sizeof(kWords) / sizeof(kWords[0]))]);
        break;
      }
      default:
        if (!s.empty()) s[at] = static_cast<char>(random());
        break;
    }
  }
  return s;
}

void RunCorpus(const Target& target, const std::vector<std::string>& seeds, unsigned seed) {
  ASSERT_FALSE(seeds.empty());
  auto run = [&](const std::string& input) {
    EXPECT_EQ(target(reinterpret_cast<const std::uint8_t*>(input.data()), input.size()), 0);
  };
  ::testing::internal::CaptureStderr();  // RPly reports every bad input there
  for (const std::string& s : seeds) run(s);
  std::mt19937 random(seed);
  for (int i = 0; i < kMutationsPerTarget; ++i) run(Mutate(seeds[random() % seeds.size()], random));
  ::testing::internal::GetCapturedStderr();
}

std::vector<std::string> PlySeeds() {
  std::vector<std::string> seeds;
  PlyContent faces;
  faces.headerLines = {files_test::IdentificationLine(2, 2)};
  faces.elements.push_back(tavrin_test::SampleVertices(4, false, true));
  faces.elements.push_back({"face", {{"int", "vertex_indices", "uchar"}}, {{3, 0, 1, 2}, {3, 1, 2, 3}}});
  for (PlyEncoding encoding :
       {PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian, PlyEncoding::BinaryBigEndian}) {
    seeds.push_back(BuildPly(files_test::PhotoneoContent(3, 2), encoding));
    seeds.push_back(BuildPly(files_test::PhotoneoContent(2, 2), encoding, "\r\n"));
    seeds.push_back(BuildPly(faces, encoding));
  }
  seeds.push_back("ply\nformat ascii 1.0\nend_header\n");
  return seeds;
}

TEST(FuzzRegression, PlyReader) { RunCorpus(tavrin_fuzz::FuzzPlyReader, PlySeeds(), 11); }

TEST(FuzzRegression, ObjInfo) {
  RunCorpus(tavrin_fuzz::FuzzObjInfo,
            {"Photoneo PLY PointCloud ( Width = 2064; Height = 1544)", "(Width=4;Height=3)",
             "(Width = 4; ; Height = 3)", "(Width 4; Height = 3)", "((a) = (b); c = d))", ")(", ""},
            12);
}

TEST(FuzzRegression, ZelkImporter) {
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(4, 3));
  scan.AddNormals();
  scan.AddColors();
  for (unsigned i = 0; i < 5; ++i) {
    const std::uint32_t index = scan.AddPointAt(i % 4, i % 3);
    scan.GetPositions()[index] = glm::vec3(static_cast<float>(i), 1.0f, 2.0f);
  }
  scan.SetTimestamp(12.5);
  utils::SpaceDefinition space;
  space.id = "seed";
  scan.SetSpace(space);
  zelk::Exporter one;
  one.AddScan(scan);
  zelk::Exporter two;
  two.AddScan(scan);
  two.AddScan(zelk::Scan());
  const std::vector<char> a = one.Encode();
  const std::vector<char> b = two.Encode();
  RunCorpus(tavrin_fuzz::FuzzZelkImporter, {std::string(a.begin(), a.end()), std::string(b.begin(), b.end())}, 13);
}

}  // namespace
