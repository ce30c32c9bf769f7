// Names of pieces and of local working files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>

#include "services/piece_name.h"
#include "services/working_path.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace MTF;

TEST(Piece_Name, DifferAndComeBack) {
  std::set<std::string> names;
  std::size_t count = 0;
  for (const char* stem : {"a", "a.1", "a.1.1", "a.f", "a.1.1.mtf"}) {
    for (unsigned seq : {1U, 11U, 0xFFFFFFFFU}) {
      for (unsigned long long channel : {0ULL, 1ULL, ~0ULL}) {
        for (bool flag : {false, true}) {
          std::string media, catalog, plain;
          mtf_name(stem, seq, channel, flag, media);
          cat_name(stem, seq, channel, flag, catalog);
          names.insert({media, catalog});
          count += 2;
          mtf_name(stem, seq, channel, plain);
          EXPECT_EQ(plain == media, !flag);
          cat_name(stem, seq, channel, plain);
          EXPECT_EQ(plain == catalog, !flag);
          Piece_Name back;
          ASSERT_TRUE(parse_piece_name(catalog, back)) << catalog;
          EXPECT_EQ(back.stem, stem);
          EXPECT_EQ(back.seq, seq);
          EXPECT_EQ(back.channel, channel);
          EXPECT_EQ(back.flag, flag);
          EXPECT_TRUE(back.catalog);
        }
      }
    }
  }
  EXPECT_EQ(names.size(), count);
}

TEST(Piece_Name, WhatIsNone) {
  for (const char* name : {"", ".mtf", "a.mtf", "a.1.mtf", ".1.1.mtf", "a.01.1.mtf", "a.1.01.mtf",
                           "a.-1.1.mtf", "a.4294967296.1.mtf", "a.1.18446744073709551616.mtf",
                           "a.1.1.MTF", "a.1.1.mtf.part", "a.1.1", "a.1..mtf", "a.1.1.f.f.mtf"}) {
    Piece_Name out;
    EXPECT_FALSE(parse_piece_name(name, out)) << name;
  }
}

TEST(Working_Path, EachChannelKindAndStemHasItsOwnInsideTheJobsDirectory) {
  const test_support::Temp_Dir tmp;
  std::set<std::string> paths;
  for (const char* stem : {"a", "..", "a/b", "", ".a"}) {
    for (const char* option : {"", "o"}) {
      for (unsigned long long channel : {0ULL, 12ULL}) {
        for (auto function : {cat_path, tfdd_path, tsmp_path, prev_cat_path}) {
          std::string path;
          ASSERT_TRUE(function(tmp / "jobs", option, stem, channel, path)) << stem;
          EXPECT_EQ(path.find("/.."), std::string::npos) << path;
          EXPECT_EQ(path.rfind(tmp / "jobs/", 0), 0U) << path;
          paths.insert(path);
        }
      }
    }
  }
  EXPECT_EQ(paths.size(), 5U * 2 * 2 * 4);
}

TEST(Working_Path, RefusesALinkOrAFileInThePlaceOfItsDirectory) {
  const test_support::Temp_Dir tmp;
  std::string path;
  test_support::write_file(tmp / "file", "");
  EXPECT_FALSE(cat_path(tmp / "file", "", "a", 0, path));
  test_support::write_file(tmp / "a", "");
  EXPECT_FALSE(cat_path(tmp.path(), "", "a", 0, path));
  ASSERT_EQ(::symlink("/", (tmp / "b").c_str()), 0);
  EXPECT_FALSE(cat_path(tmp.path(), "", "b", 0, path));
}

class Text_Reader : public IReader {
 public:
  Text_Reader(std::string text, bool fails) : text_(std::move(text)), fails_(fails) {}
  long long read(char* data, unsigned long long size) override {
    if (at_ == text_.size()) return fails_ ? -1 : 0;
    const auto count =
        std::min<std::size_t>({static_cast<std::size_t>(size), text_.size() - at_, 70001});
    text_.copy(data, count, at_);
    at_ += count;
    return static_cast<long long>(count);
  }

 private:
  const std::string text_;
  const bool fails_;
  std::size_t at_ = 0;
};

TEST(Working_Path, AReaderGoesIntoAFile) {
  const test_support::Temp_Dir tmp;
  const std::string text(200001, 'x');
  Text_Reader whole(text, false);
  EXPECT_TRUE(reader_to_file(&whole, tmp / "copy"));
  EXPECT_EQ(test_support::read_file(tmp / "copy"), text);
  Text_Reader broken(text, true);
  EXPECT_FALSE(reader_to_file(&broken, tmp / "copy"));
  Text_Reader unplaced(text, false);
  EXPECT_FALSE(reader_to_file(&unplaced, tmp / "none/copy"));
}

}  // namespace
