// What stands on a media and in a catalog, found from the bytes alone.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/media_bytes.h"

namespace test_support {

using test::get_le;
using test::xor16;

// A block or stream of a media: four letters, where it starts, and for a stream where its data
// starts and how long it is.
struct Item {
  std::string id;
  std::size_t at;
  bool block;
  std::size_t data;
  unsigned long long length;
};

// The blocks and streams of a media in their order, soft filemarks as `MARK`. Ends with an item
// `????` where the bytes make no sense.
std::vector<Item> media_items(const std::string& media);

// The ids alone, with a space between them, without the SPAD streams.
std::string media_order(const std::string& media);

// The data of the `n`-th stream `id` of a media, counted from 0; "none" where there is none.
std::string stream_data(const std::string& media, const std::string& id, std::size_t n = 0);

// Types and names of the entries of a catalog behind its summary and metadata, such as
// `FILE a.txt`, with backslashes in place of NUL bytes.
std::vector<std::string> catalog_entries(const std::string& catalog);

// The same of one catalog block.
std::string entry_text(const std::string& block);

}  // namespace test_support
