#include "mtf/catalog/catalog_forward_finder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "tests/support/log_lines.h"
#include "tests/support/media_bytes.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace test_support;
using test::Catalog_Entry;
using Entries = std::vector<Catalog_Entry>;

const std::string modified = test::date(2020, 2, 29, 12, 34, 56);

Catalog_Entry entry(const std::string& type, const std::string& name) {
  Catalog_Entry out;
  out.type = type;
  out.date = modified;
  out.name = type == "VOLB" || type == "DIRB" ? test::nul_separated(name) : name;
  return out;
}

std::string catalog(const Entries& entries) {
  return test::Media_Bytes::catalog_of(entries, R"({"channels":0,"seq":1})", 1);
}

// A place that a walk comes by: a volume, a directory or a file.
struct Place {
  std::string vol, dir, name;
};

Catalog_Entry entry_of(const Place& place) {
  if (!place.name.empty()) return entry("FILE", place.name);
  return place.dir.empty() ? entry("VOLB", place.vol) : entry("DIRB", place.dir);
}

bool find(MTF::Catalog_Forward_Finder& finder, const Place& place, MTF::Cat_Blk& out) {
  return place.name.empty() ? finder.find(place.vol, place.dir, out)
                            : finder.find(place.vol, place.dir, place.name, out);
}

class Catalog_Finder : public testing::Test {
 protected:
  // Looks up `places` in turn. False if the catalog was refused; `found` has what was found.
  bool look_up(const std::string& bytes, const std::vector<Place>& places) {
    // A new file each time: emptying one makes some file systems wait for the disk.
    platform::remove_tree(path_);
    write_file(path_, bytes);
    found_.clear();
    lines_ = std::make_unique<Log_Lines>();
    const Capture capture(*lines_);
    MTF::Catalog_Forward_Finder finder(false);
    if (!finder.open(path_)) return false;
    for (std::size_t i = 0; i < places.size(); ++i) {
      MTF::Cat_Blk out;
      if (!find(finder, places[i], out)) continue;
      std::string name;
      EXPECT_TRUE(MTF::block_name(out, name));
      found_[i] = name;
    }
    return finder.finish();
  }

  bool told(const std::string& where) const {
    return lines_->count("128 Earlier catalog can't be used, " + path_ + ":" + where) == 1;
  }

  Temp_Dir dir_;
  std::string path_ = dir_ / "earlier.cat";
  std::map<std::size_t, std::string> found_;
  std::unique_ptr<Log_Lines> lines_;
};

// Adds a directory with all below it in the order of a walk: files first, each group by its bytes.
void add_tree(std::mt19937& random, const std::string& vol, const std::string& dir, int depth,
              std::vector<Place>& out) {
  // In the order of their bytes.
  static const std::vector<std::string> names = {
      " ",   "!", "a", "a ", "a!", "a.x", "b", std::string(3000, 'n'), "\x7F", "\xEF\x81\x9C",
      "\xFF"};
  out.push_back({vol, dir, ""});
  for (const std::string& name : names) {
    if (random() % 2 == 0) out.push_back({vol, dir, name});
  }
  if (depth == 0) return;
  for (const std::string& name : names) {
    if (random() % 3 == 0) add_tree(random, vol, dir + name + "\\", depth - 1, out);
  }
}

// What a walk may meet, of which the earlier walk met one part and the current one another.
TEST_F(Catalog_Finder, FindsWhatIsThereAndLosesNothingByAMiss) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 10; ++round) {
    std::vector<Place> all;
    for (const char* vol : {"/", "C:", "D:"}) add_tree(random, vol, "", 3, all);
    std::vector<Place> asked;
    std::vector<bool> held;
    Entries entries;
    bool has_directory = true;
    for (const Place& place : all) {
      // A channel leaves out the directories that it doesn't need.
      if (place.name.empty()) has_directory = place.dir.empty() || random() % 4 != 0;
      const bool hold = has_directory && (place.name.empty() || random() % 4 != 0);
      if (hold) entries.push_back(entry_of(place));
      if (place.name.empty() ? random() % 8 == 0 : random() % 4 == 0) continue;
      asked.push_back(place);
      held.push_back(hold);
    }
    ASSERT_TRUE(look_up(catalog(entries), asked));
    for (std::size_t i = 0; i < asked.size(); ++i) {
      ASSERT_EQ(found_.count(i) == 1, held[i]) << asked[i].dir << asked[i].name;
      if (held[i] && !asked[i].name.empty()) {
        ASSERT_EQ(found_[i], asked[i].name);
      }
    }
  }
}

TEST_F(Catalog_Finder, FindsAgainButNotWhatLiesBehind) {
  const Entries entries = {entry("VOLB", "/"), entry("DIRB", "a\\"), entry("FILE", "f"),
                           entry("VOLB", "X:"), entry("FILE", "g")};
  const Place file{"/", "a\\", "f"};
  ASSERT_TRUE(
      look_up(catalog(entries), {file, file, {"/", "", ""}, {"C:", "", "g"}, {"X:", "", "g"}}));
  EXPECT_EQ(found_, (std::map<std::size_t, std::string>{{0, "f"}, {1, "f"}, {4, "g"}}));
}

TEST_F(Catalog_Finder, RefusesACatalogThatIsNotInOrder) {
  const Entries tables[] = {
      {entry("FILE", "a")},
      {entry("DIRB", "a\\")},
      {entry("VOLB", "X:"), entry("VOLB", "/")},
      {entry("VOLB", "/"), entry("VOLB", "/")},
      {entry("VOLB", "/"), entry("DIRB", "a\\"), entry("DIRB", "a\\")},
      {entry("VOLB", "/"), entry("DIRB", "a\\b\\"), entry("DIRB", "a\\")},
      {entry("VOLB", "/"), entry("DIRB", "a.x\\"), entry("DIRB", "a\\b\\")},
      {entry("VOLB", "/"), entry("FILE", "b"), entry("FILE", "a")},
      {entry("VOLB", "/"), entry("FILE", "a"), entry("KNLS", "a")},
      {entry("VOLB", "/"), entry("FILE", "\xFF"), entry("FILE", "a")},
  };
  for (const Entries& entries : tables) {
    EXPECT_FALSE(look_up(catalog(entries), {}));
    EXPECT_TRUE(told("")) << "one line that names the file";
  }
}

// One of everything, and where each record stands.
struct Sample {
  Entries entries = {entry("VOLB", "/"),          entry("PDAT", "pre_action_data"),
                     entry("FILE", "b"),          entry("DIRB", "home\\"),
                     entry("DEVB", "a"),          entry("FILE", "b.txt"),
                     entry("HLNK", "c"),          entry("KNLS", "d"),
                     entry("DIRB", "home\\me\\"), entry("FILE", "e")};
  std::vector<Place> places = {
      {"/", "", ""},        {"/", "", "b"},           {"/", "home\\", ""},
      {"/", "home\\", "a"}, {"/", "home\\", "b.txt"}, {"/", "home\\", "c"},
      {"/", "home\\", "d"}, {"/", "home\\me\\", ""},  {"/", "home\\me\\", "e"}};
  std::string bytes = catalog(entries);
};

// Behind the summary and the metadata come records of 64 bytes with dates, addresses and names that
// no checksum covers.
TEST_F(Catalog_Finder, RefusesDamageToEachByteThatIsChecked) {
  const Sample sample;
  ASSERT_TRUE(look_up(sample.bytes, sample.places));
  ASSERT_EQ(found_.size(), sample.places.size());
  const auto sound = found_;
  const std::size_t first = sample.bytes.find("VOLB") - 2;
  for (std::size_t at = 0, record = first; at < sample.bytes.size(); ++at) {
    if (at == record + test::get_le(sample.bytes, record, 2)) record = at;
    const bool checked = at < 96 + 22 || (at >= record && at < record + 64);
    for (const int bits : {0x01, 0x80, 0xFF}) {
      std::string bytes = sample.bytes;
      bytes[at] = static_cast<char>(bytes[at] ^ bits);
      const bool taken = look_up(bytes, sample.places);
      EXPECT_TRUE(taken ? !checked : told("")) << at;
      for (const auto& [i, name] : found_) EXPECT_TRUE(!checked || name == sound.at(i)) << at;
    }
  }
}

TEST_F(Catalog_Finder, RefusesACatalogOfEachOtherLength) {
  const Sample sample;
  for (std::size_t size = 0; size < sample.bytes.size(); ++size) {
    EXPECT_FALSE(look_up(sample.bytes.substr(0, size), sample.places)) << size;
  }
  EXPECT_FALSE(look_up(sample.bytes + '\0', sample.places));
  EXPECT_FALSE(look_up(sample.bytes + sample.bytes.substr(96), sample.places));
  Capture capture(*lines_);
  MTF::Catalog_Forward_Finder finder(false);
  EXPECT_FALSE(finder.open(dir_ / "nothing"));
  EXPECT_FALSE(finder.open(dir_.path())) << "a directory";
}

// Fields with a good checksum and a bad value, in the record or in what stands in front of it.
TEST_F(Catalog_Finder, TellsWhereAFieldIsWrong) {
  const std::size_t stream = 96;
  const std::string sound = catalog({entry("VOLB", "/"), entry("FILE", "name")});
  const std::size_t volume = sound.find("VOLB") - 2;
  const std::size_t file = sound.find("FILE") - 2;
  const std::size_t end = sound.find("FEND") - 2;
  const struct {
    std::size_t record;
    std::size_t offset;
    unsigned long long value;
    int width;
    const char* what;
  } cases[] = {
      {0, 2, 2, 4, "this is no catalog"},
      {stream, 0, 0x4E415453, 4, "the metadata stream is damaged"},
      {stream, 8, sound.size() - 96 - 22 + 1, 8, "the metadata stream has a wrong length"},
      {stream, 8, ~0ULL, 8, "the metadata stream has a wrong length"},
      {volume, 0, 67, 2, "a record has a wrong length"},
      {file, 0, 72, 2, "a record has a wrong length"},
      {file, 0, 0, 2, "a record has a wrong length"},
      {file, 0, 0xFFFF, 2, "a record has a wrong length"},
      {file, 2, 0x454C4947, 4, "a record is of an unknown type"},
      {file, 60, 7, 1, "a name is of an unknown type"},
      {file, 69, 0, 2, "a record has a name outside itself"},
      {file, 69, 5, 2, "a record has a name outside itself"},
      {file, 69, 0xFFFF, 2, "a record has a name outside itself"},
      {file, 71, 72, 2, "a record has a name outside itself"},
      {file, 71, 0xFFFF, 2, "a record has a name outside itself"},
      {end, 0, 63, 2, "the FEND record has a wrong length"},
  };
  for (const auto& row : cases) {
    std::string bytes = sound;
    test::set_le(bytes, row.record + row.offset, row.value, row.width);
    if (row.record == 0) test::set_le(bytes, 94, test::xor16(bytes, 0, 94), 2);
    if (row.record == stream) test::seal_stream(bytes, row.record);
    if (row.record > stream) test::seal_record(bytes, row.record);
    EXPECT_FALSE(look_up(bytes, {{"/", "", "name"}})) << row.what;
    EXPECT_TRUE(told(std::to_string(row.record == 0 ? 0 : row.record) + ": " + row.what))
        << row.what;
  }
}

}  // namespace
