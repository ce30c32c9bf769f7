// Where the headers stand in a piece, so that a mutation reaches behind their checksums.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

struct Mark {
  enum class Kind { block, stream, frame, summary, record };

  Kind kind;
  std::size_t at;
};

// Every place of a media or a catalog that looks like a header, in rising order.
std::vector<Mark> marks_of(const std::string& bytes, bool catalog);

// Computes the checksum of the header at `mark` anew, and that of the stream's data which it is or
// lies in.
void seal(std::string& bytes, const std::vector<Mark>& marks, std::size_t mark);

}  // namespace fuzz
