// Changes of a tree at random.
#pragma once

#include <random>
#include <string>

namespace test_support {

// Does what users and programs do to a tree, only faster. Whatever fails is left as it is.
class Tree_Changer {
 public:
  // Changes what is below `tree`. Links lead to `outside`, which has the same names in it.
  Tree_Changer(std::string tree, std::string outside, unsigned int seed)
      : tree_(std::move(tree)), outside_(std::move(outside)), random_(seed) {}

  void change();

  // Makes the directory, with files in it and more directories of this kind for `levels` levels.
  static void fill(const std::string& directory, const std::string& content, int levels);

 private:
  unsigned int below(unsigned int n) { return static_cast<unsigned int>(random_() % n); }
  std::string some_directory();
  std::string some_path();
  void append(const std::string& path, std::size_t size);
  template <class Make>
  void replace(Make make);
  void swap(const std::string& path);

  const std::string tree_, outside_;
  std::mt19937 random_;
};

}  // namespace test_support
