// Replays every fuzz target's committed corpus (seeds and the crash inputs
// found so far) and a few thousand deterministic mutations of it, byte-wise
// and, for the formats with a layout, structure-aware, so that the sanitizer
// builds of every compiler exercise the parsers (the libFuzzer programs need
// clang).
#include "FuzzCorpus.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using fuzz_test::FuzzTarget;

struct CorpusFile {
  std::string name;
  std::string bytes;
};

std::vector<CorpusFile> LoadCorpus(const std::string& target) {
  std::vector<CorpusFile> files;
  for (const auto& entry : std::filesystem::directory_iterator(fuzz_test::CorpusDir(target))) {
    if (!entry.is_regular_file()) continue;
    std::ifstream in(entry.path(), std::ios::binary);
    files.push_back({entry.path().filename().string(),
                     std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())});
  }
  // Directory order differs between file systems; replay in a fixed order.
  std::sort(files.begin(), files.end(), [](const CorpusFile& a, const CorpusFile& b) { return a.name < b.name; });
  return files;
}

bool StartsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// One mutation: byte flips, insertions, deletions, truncation, a copied
// chunk, or an interesting value written over a few bytes.
std::string Mutate(const std::string& seed, std::mt19937& random) {
  std::string s = seed;
  const int steps = 1 + static_cast<int>(random() % 4);
  for (int step = 0; step < steps; ++step) {
    const std::size_t at = s.empty() ? 0 : random() % s.size();
    switch (random() % 8) {
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
                                             "\n", "\r\n", "list", "element vertex 3\n"};
        s.insert(at, kWords[random() % (sizeof(kWords) / sizeof(kWords[0]))]);
        break;
      }
      case 6: {
        // A binary count or size made absurd in place.
        static const std::uint32_t kValues[] = {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0x00010000u};
        const std::uint32_t value = kValues[random() % (sizeof(kValues) / sizeof(kValues[0]))];
        for (std::size_t k = 0; k < 4 && at + k < s.size(); ++k) s[at + k] = static_cast<char>(value >> (8 * k));
        break;
      }
      default:
        if (!s.empty()) s[at] = static_cast<char>(random());
        break;
    }
  }
  return s;
}

bool Feed(const FuzzTarget& target, const std::string& input) {
  return target.run(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
}

class FuzzCorpus : public ::testing::TestWithParam<FuzzTarget> {
protected:
  // Refused inputs log (and RPly prints its errors to stderr): keep both out
  // of the test output.
  void SetUp() override { ::testing::internal::CaptureStderr(); }
  void TearDown() override { ::testing::internal::GetCapturedStderr(); }

  tavrin_test::LogCapture log_;
};

TEST_P(FuzzCorpus, EveryCommittedInputReplaysWithItsOutcome) {
  const FuzzTarget& target = GetParam();
  const std::vector<CorpusFile> corpus = LoadCorpus(target.corpus);
  ASSERT_FALSE(corpus.empty()) << fuzz_test::CorpusDir(target.corpus);
  if (target.checksAcceptance) {
    EXPECT_FALSE(Feed(target, std::string())) << "the empty input";
  }
  int valid = 0;
  for (const CorpusFile& file : corpus) {
    SCOPED_TRACE(file.name);
    const bool accepted = Feed(target, file.bytes);
    if (!target.checksAcceptance) continue;
    if (StartsWith(file.name, "valid-") || (target.alsoValid && StartsWith(file.name, target.alsoValid))) {
      EXPECT_TRUE(accepted);
      ++valid;
    }
    if (StartsWith(file.name, "broken-")) {
      EXPECT_FALSE(accepted);
    }
  }
  if (target.checksAcceptance) {
    EXPECT_GT(valid, 0) << "the corpus needs valid inputs to mutate";
  }
}

TEST_P(FuzzCorpus, MutationsOfTheCorpusKeepTheInvariants) {
  const FuzzTarget& target = GetParam();
  const std::vector<CorpusFile> corpus = LoadCorpus(target.corpus);
  ASSERT_FALSE(corpus.empty());
  // Seeded by the target's name (FNV-1a): the same mutations on every run
  // and every platform.
  std::uint32_t seed = 2166136261u;
  for (const char* c = target.name; *c != '\0'; ++c) seed = (seed ^ static_cast<unsigned char>(*c)) * 16777619u;
  std::mt19937 random(seed);
  int accepted = 0;
  for (int i = 0; i < target.mutations; ++i) {
    std::string input = corpus[random() % corpus.size()].bytes;
    // Every other mutation edits one or two fields of the format's layout;
    // byte mutations take the rest and the files the layout cannot parse.
    bool edited = false;
    if (target.mutateStructure && i % 2 == 1) {
      for (int step = 1 + static_cast<int>(random() % 2); step > 0; --step) {
        edited = target.mutateStructure(input, random) || edited;
      }
    }
    if (Feed(target, edited ? input : Mutate(input, random))) ++accepted;
  }
  // Some mutations must stay acceptable, or the run never gets past the
  // parser's first checks.
  if (target.checksAcceptance) {
    EXPECT_GT(accepted, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(AllParsers, FuzzCorpus, ::testing::ValuesIn(fuzz_test::FuzzTargets()),
                         [](const ::testing::TestParamInfo<FuzzTarget>& info) { return std::string(info.param.name); });

}  // namespace
