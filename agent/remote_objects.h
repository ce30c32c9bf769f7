// The objects that a remote holds for jobs: pieces, marks and locks.
#pragma once

#include <string>
#include <vector>

namespace agent {

struct Remote_Object {
  std::string name;
  unsigned long long size = 0;
  bool sized = false;   // some kinds of remote don't tell the size
  std::string changed;  // as the remote tells it, in UTC
};

// Reads a listing as rclone serves it. False if it is something else.
bool parse_listing(const std::string& json, std::vector<Remote_Object>& objects);

// An object that keeps pieces from counting for as long as it stands beside them:
// `STEM.SEQ.unfinished` all pieces of a job that is being made, `PIECE.rebuild` the one that joins
// a job that is there.
struct Mark {
  std::string stem;
  unsigned int seq = 0;
  std::string piece;  // empty for a whole job

  std::string name() const;

  // True for a piece that doesn't count because of it.
  bool covers(const std::string& name) const;
};

bool parse_mark(const std::string& name, Mark& out);

// The marks among `objects`, of one stem where it isn't empty.
std::vector<Mark> marks_among(const std::vector<Remote_Object>& objects, const std::string& stem);

}  // namespace agent
