#include "services/compression.h"

#include <lz4.h>
#include <lz4hc.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>

namespace MTF {
namespace {

constexpr int not_compressed = -1;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};

class Lz4_Compressor : public Compressor {
 public:
  explicit Lz4_Compressor(int level) : level_(std::min(level, LZ4HC_CLEVEL_MAX)) {
    state_.reset(std::malloc(high() ? LZ4_sizeofStateHC() : LZ4_sizeofState()));
  }

  bool ready() const { return state_ != nullptr; }
  unsigned short method() const override { return compression_lz4; }

  int compress(const Buffer& in, Buffer& out) override {
    const int size = static_cast<int>(in.size());
    const int bound = LZ4_compressBound(size);
    if (bound <= 0 || !out.expand(static_cast<unsigned int>(bound))) return not_compressed;
    const int written =
        high()
            ? LZ4_compress_HC_extStateHC(state_.get(), in.data(), out.data(), size, bound, level_)
            : LZ4_compress_fast_extState(state_.get(), in.data(), out.data(), size, bound, 1);
    if (written <= 0) return not_compressed;
    out.size(static_cast<unsigned int>(written));
    return written;
  }

 private:
  // From this level on the library's high-compression form is the better trade.
  bool high() const { return level_ >= LZ4HC_CLEVEL_MIN; }

  int level_;
  std::unique_ptr<void, Free> state_;
};

class Zstd_Compressor : public Compressor {
 public:
  explicit Zstd_Compressor(int level)
      : level_(std::clamp(level, ZSTD_minCLevel(), ZSTD_maxCLevel())),
        context_(ZSTD_createCCtx()) {}

  bool ready() const { return context_ != nullptr; }
  unsigned short method() const override { return compression_zstd; }

  int compress(const Buffer& in, Buffer& out) override {
    const std::size_t bound = ZSTD_compressBound(in.size());
    if (!out.expand(static_cast<unsigned int>(bound))) return not_compressed;
    const std::size_t written =
        ZSTD_compressCCtx(context_.get(), out.data(), bound, in.data(), in.size(), level_);
    if (ZSTD_isError(written)) return not_compressed;
    out.size(static_cast<unsigned int>(written));
    return static_cast<int>(written);
  }

 private:
  int level_;
  std::unique_ptr<ZSTD_CCtx, Free> context_;
};

template <class T>
std::unique_ptr<Compressor> make(int level) {
  std::unique_ptr<T> compressor(new (std::nothrow) T(level));
  if (compressor == nullptr || !compressor->ready()) {
    errno = ENOMEM;
    return nullptr;
  }
  return compressor;
}

}  // namespace

std::unique_ptr<Compressor> Compression_Factory::create(unsigned short method, int level) {
  switch (method) {
    case compression_lz4:
      return make<Lz4_Compressor>(level);
    case compression_zstd:
      return make<Zstd_Compressor>(level);
    default:
      return nullptr;
  }
}

bool decompress(unsigned short method, const char* in, std::size_t in_size, char* out,
                std::size_t out_size) {
  if (in_size > LZ4_MAX_INPUT_SIZE || out_size > LZ4_MAX_INPUT_SIZE) return false;
  switch (method) {
    case compression_lz4: {
      const int size =
          LZ4_decompress_safe(in, out, static_cast<int>(in_size), static_cast<int>(out_size));
      return size >= 0 && static_cast<std::size_t>(size) == out_size;
    }
    case compression_zstd:
      return ZSTD_decompress(out, out_size, in, in_size) == out_size;
    default:
      return false;
  }
}

}  // namespace MTF
