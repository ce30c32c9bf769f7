// Paths under construction, and their parts.
#pragma once

#include <cstddef>
#include <string>
#include <type_traits>

namespace oxbase {

// Replaces each `%NAME%` by the value of that environment variable; one that isn't set stays as it
// stands.
void expand_environment_strings(std::string& text);

// The last part of a path, trailing separators aside.
std::string basename(const std::string& path, char separator);

// The path without its last part and the separator in front of it; empty where it has one part
// alone.
std::string dirname_string(const char* path, char separator);

// A path to which parts are joined with exactly one separator between them. With the flag on,
// str() expands environment strings.
template <class C>
class Path_T {
 public:
  using String = std::basic_string<C>;

  explicit Path_T(C separator, bool expand_environment = false)
      : separator_(separator), expand_(expand_environment) {}

  Path_T& operator/=(const String& part) { return append(part.data(), part.size()); }
  Path_T& operator/=(const C* part) { return append(part, std::char_traits<C>::length(part)); }
  Path_T& append(const String& part) { return append(part.data(), part.size()); }

  // Joins one part: an empty part changes nothing, and of two separators that meet one goes.
  Path_T& append(const C* part, std::size_t size) {
    if (size == 0) return *this;
    const bool ends = !text_.empty() && text_.back() == separator_;
    const bool begins = part[0] == separator_;
    if (ends && begins) {
      ++part;
      --size;
    } else if (!text_.empty() && !ends && !begins) {
      text_ += separator_;
    }
    text_.append(part, size);
    return *this;
  }

  const String& str() const {
    if constexpr (std::is_same_v<C, char>) {
      if (expand_) expand_environment_strings(text_);
    }
    return text_;
  }

  void clear() { text_.clear(); }
  bool empty() const { return text_.empty(); }
  C separator() const { return separator_; }

 private:
  mutable String text_;
  C separator_;
  bool expand_;
};

}  // namespace oxbase
