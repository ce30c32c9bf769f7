// A filter that asks a function.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "services/filter.h"

namespace test_support {

struct Filter : MTF::IFilter {
  using Accept = std::function<bool(const std::string& path, bool is_directory)>;
  explicit Filter(Accept accept) : on_accept(std::move(accept)) {}
  bool accept(const char* path, bool is_directory) const override {
    return on_accept(path, is_directory);
  }
  Accept on_accept;
};

inline bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace test_support
