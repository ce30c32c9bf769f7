// Puts the pieces of a storage into one input: fuzz_pack OUTPUT PIECE...
#include <fstream>
#include <iostream>
#include <iterator>

#include "fuzz/pieces.h"
#include "services/piece_name.h"

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  std::vector<fuzz::Piece> pieces;
  for (int i = 2; i < argc; ++i) {
    const std::string path = argv[i];
    MTF::Piece_Name name;
    std::ifstream in(path, std::ios::binary);
    if (!in || !MTF::parse_piece_name(path.substr(path.rfind('/') + 1), name)) {
      std::cerr << path << ": no piece\n";
      return 1;
    }
    pieces.push_back({name.catalog,
                      static_cast<unsigned char>(name.seq),
                      static_cast<unsigned char>(name.channel),
                      {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()}});
  }
  return std::ofstream(argv[1], std::ios::binary) << fuzz::join(pieces) ? 0 : 1;
}
