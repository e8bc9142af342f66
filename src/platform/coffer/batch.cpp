// The Coffer's batches: many writes, one durable transaction.
#include "platform/coffer/connection.hpp"
#include "platform/coffer/run.hpp"

extern "C" {

VltStatus VltBatchBegin(void) noexcept {
  return vlt::run("VltBatchBegin", pt::Family::Coffer, [] { return vlt::beginBatch(); });
}

VltStatus VltBatchCommit(void) noexcept {
  return vlt::run("VltBatchCommit", pt::Family::Coffer, [] { return vlt::endBatch(true); });
}

VltStatus VltBatchCancel(void) noexcept {
  return vlt::run("VltBatchCancel", pt::Family::Coffer, [] { return vlt::endBatch(false); });
}

}  // extern "C"
