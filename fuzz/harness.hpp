// What the fuzz harnesses share: a reader over the input bytes, values of
// every kind built from them (dictionaries keyed mostly by the names the
// library reads, so that random bytes reach its branches), and a scratch
// directory of the process's own.
//
// Each harness defines LLVMFuzzerTestOneInput. Built with scripts/fuzz it
// runs under libFuzzer; in the ordinary build it links replay.cpp, which
// feeds it every input kept in fuzz/corpus/<harness>/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/values.h"

namespace fuzz {

class Input {
 public:
  Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}
  bool empty() const { return size_ == 0; }
  // The next byte, 0 once the input is used up.
  uint8_t byte();
  // Up to `most` bytes, as many as the next byte says.
  std::string bytes(size_t most);
  // What is left.
  std::string rest();

 private:
  const uint8_t *data_;
  size_t size_;
};

// A value of any kind; collections nest at most `depth` more levels.
pv::Ref<PVTypeRef> arbitraryValue(Input &in, int depth);
pv::Ref<PVDictionaryRef> arbitraryDictionary(Input &in, int depth);

// Made once, removed at exit; in memory (/dev/shm) when it can be, so that
// a store's syncs cost nothing. No announcement or engine ever leaves the
// process.
const std::string &scratchDirectory();

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
