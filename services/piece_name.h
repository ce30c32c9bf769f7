// The names of the pieces that a job leaves on a channel.
#pragma once

#include <string>

namespace MTF {

// `<stem>.<seq>.<channel>.mtf`, and `<stem>.<seq>.<channel>.cat` for the catalog; `flag` puts `.f`
// in front of the ending. Names of different stems, numbers or channels differ.
void mtf_name(const std::string& stem, unsigned int seq, unsigned long long channel,
              std::string& out);
void mtf_name(const std::string& stem, unsigned int seq, unsigned long long channel, bool flag,
              std::string& out);
void cat_name(const std::string& stem, unsigned int seq, unsigned long long channel,
              std::string& out);
void cat_name(const std::string& stem, unsigned int seq, unsigned long long channel, bool flag,
              std::string& out);

// What a piece's name says.
struct Piece_Name {
  std::string stem;
  unsigned int seq;
  unsigned long long channel;
  bool flag;
  bool catalog;  // else a media
};

// Reads a name back; false if it isn't one that the functions above give.
bool parse_piece_name(const std::string& name, Piece_Name& out);

}  // namespace MTF
