#include "services/buffer.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace MTF {

Buffer::Buffer(unsigned char alignment) : alignment_(alignment) {}

Buffer::~Buffer() {
  std::free(base_);
}

bool Buffer::expand(unsigned int n) {
  if (n <= capacity_) return true;
  // Zeroed memory from calloc costs nothing for the large buffers that come fresh from the system.
  char* base = static_cast<char*>(std::calloc(std::size_t{n} + alignment_, 1));
  if (base == nullptr) {
    errno = ENOMEM;
    return false;
  }
  const auto misfit = reinterpret_cast<std::uintptr_t>(base) % alignment_;
  const auto offset = static_cast<unsigned int>(misfit == 0 ? 0 : alignment_ - misfit);
  if (capacity_ > 0) std::memcpy(base + offset, data(), capacity_);
  std::free(base_);
  base_ = base;
  offset_ = offset;
  capacity_ = n;
  return true;
}

void Buffer::copy(const char* data, unsigned int n) {
  if (n > 0) std::memcpy(this->data(), data, n);
}

Ref_Ptr<Buffer> make_buffer() {
  return share(new (std::nothrow) Buffer(8));
}

}  // namespace MTF
