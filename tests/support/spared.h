// Memory that the test takes in the middle of a job, on the job's threads.
#pragma once

namespace test_support {

// A test of short memory leaves alone what this thread takes while it has such an object.
class Spared {
 public:
  Spared() { ++depth_; }
  ~Spared() { --depth_; }
  Spared(const Spared&) = delete;
  Spared& operator=(const Spared&) = delete;

  static bool here() { return depth_ != 0; }

 private:
  static inline thread_local int depth_ = 0;
};

}  // namespace test_support
