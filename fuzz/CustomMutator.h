#pragma once
// libFuzzer glue for a structure-aware mutator (StructureMutators.h): half
// the mutations edit the file through its layout, the other half (and every
// input the layout cannot parse) are libFuzzer's own byte mutations, which
// reach the checks that layout edits keep intact. Only for the libFuzzer
// programs: LLVMFuzzerMutate exists only there.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace tavrin_fuzz {

using StructureMutator = bool (*)(std::string& bytes, std::mt19937& random);

inline std::size_t CustomMutate(StructureMutator mutate, std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                unsigned int seed) {
  std::mt19937 random(seed);
  if (random() % 2 == 0) {
    std::string bytes(reinterpret_cast<const char*>(data), size);
    if (mutate(bytes, random) && bytes.size() <= maxSize) {
      std::memcpy(data, bytes.data(), bytes.size());
      return bytes.size();
    }
  }
  return LLVMFuzzerMutate(data, size, maxSize);
}

}  // namespace tavrin_fuzz

// Defines the program's LLVMFuzzerCustomMutator with `mutator`.
#define TAVRIN_FUZZ_CUSTOM_MUTATOR(mutator)                                                                     \
  extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,  \
                                                 unsigned int seed) {                                         \
    return ::tavrin_fuzz::CustomMutate(mutator, data, size, maxSize, seed);                                   \
  }
