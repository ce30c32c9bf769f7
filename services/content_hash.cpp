#include "services/content_hash.h"

// The state stands in an object of this system.
#define XXH_STATIC_LINKING_ONLY
#include <xxhash.h>

namespace MTF {

struct Content_Hash::State {
  XXH3_state_t xxh;
};

Content_Hash::Content_Hash() : state_(std::make_unique<State>()) {
  XXH3_128bits_reset(&state_->xxh);
}

Content_Hash::~Content_Hash() = default;

void Content_Hash::add(const char* data, std::size_t size) {
  XXH3_128bits_update(&state_->xxh, data, size);
}

std::string Content_Hash::value() const {
  XXH128_canonical_t bytes;
  XXH128_canonicalFromHash(&bytes, XXH3_128bits_digest(&state_->xxh));
  return std::string(reinterpret_cast<const char*>(bytes.digest), sizeof bytes.digest);
}

}  // namespace MTF
