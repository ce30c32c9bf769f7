// A hash that tells two contents apart.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace MTF {

// 128 bits of XXH3 over all that is added. Used by one thread.
class Content_Hash {
 public:
  Content_Hash();
  ~Content_Hash();
  Content_Hash(const Content_Hash&) = delete;
  Content_Hash& operator=(const Content_Hash&) = delete;

  void add(const char* data, std::size_t size);

  // The 16 bytes of the hash of what was added so far.
  std::string value() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace MTF
