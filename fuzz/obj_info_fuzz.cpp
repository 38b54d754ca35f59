// libFuzzer entry point for tavrin_fuzz::FuzzObjInfo.
#include "FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return tavrin_fuzz::FuzzObjInfo(data, size);
}
