// The content of a file of a job over its media.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "mtf/reader/content_map.h"
#include "mtf/reader/job_view.h"
#include "mtf/reader/piece_window.h"

namespace MTF {

class Job_Viewer;

class Viewed_File final : public View_File {
 public:
  // The view must outlive it.
  Viewed_File(Job_Viewer& view, View_Tree::Number number);

  View_Tree::Number number() const { return number_; }

  long long read(unsigned long long offset, char* data, std::size_t size,
                 const std::function<bool()>& go_on, std::string& why) override;
  bool seek(unsigned long long offset, bool hole, const std::function<bool()>& go_on,
            unsigned long long& out, std::string& why) override;

  // True for a file that is held once it has been checked.
  bool is_small() const { return is_small_; }

 private:
  struct Frame {
    const Content_Range* range = nullptr;  // null for none
    unsigned long long end = 0;            // position behind it
    unsigned long long offset = 0;         // in the expanded data of the stream
    std::vector<char> data;
  };

  bool check(const std::function<bool()>& go_on, std::string& why);
  bool load_small(std::string& why);
  bool load_map(const std::function<bool()>& go_on, std::string& why);
  long long read_range(const Content_Range& range, unsigned long long at, char* data,
                       std::size_t size, std::string& why);
  bool load_frame(Piece_Window& window, const Content_Range& range, unsigned long long at,
                  std::string& why);
  bool expand(Piece_Window& window, unsigned long long position, const Frame_Header& header,
              unsigned short method, std::string& why);

  Job_Viewer& view_;
  const View_Tree::Number number_;
  const unsigned long long size_;
  std::mutex mutex_;  // of all below, until checked_ is set; of frame_ always
  bool checked_ = false;
  bool is_small_ = false;
  std::string small_;
  Content_Map map_;
  Frame frame_;
};

}  // namespace MTF
