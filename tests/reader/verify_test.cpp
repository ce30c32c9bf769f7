#include <gtest/gtest.h>

#include <functional>

#include "tests/support/job_media.h"

namespace {

using test::Media_Bytes;
using test::Memory_Store;

const std::string media_name = "job.1.0.mtf";
const std::string catalog_name = "job.1.0.cat";

TEST(Verify, A_sound_job_has_no_faults) {
  for (const bool with_catalog : {false, true}) {
    const Media_Bytes media = test::rich_media(with_catalog);
    Memory_Store store = test::store_of(media);
    const test::Outcome outcome = test::verify(store);
    EXPECT_EQ(told(outcome), "");
    EXPECT_EQ(outcome.summary.entries, 9u);
    EXPECT_EQ(outcome.summary.corrupt_files, 1u);
    EXPECT_EQ(outcome.summary.blocks, with_catalog ? 20u : 19u);
    EXPECT_EQ(outcome.summary.bytes, media.data.size() + media.catalog().size());
  }
}

// Bytes that neither a checksum nor a second copy covers, by block or by stream data.
struct Unprotected {
  const char* type;
  std::size_t offset;
  std::size_t size;
  bool in_catalog;  // the media's own catalog holds a copy
};
const Unprotected unprotected[] = {
    {"TAPE", 52, 4, true},        // media family
    {"TAPE", 56, 4, false},       // attributes
    {"TAPE", 62, 2, false},       // password algorithm
    {"TAPE", 66, 2, false},       // kind of catalog
    {"TAPE", 86, 7, false},       // vendor, date
    {"SSET", 52, 4, true},        // attributes
    {"SSET", 56, 6, false},       // algorithms, vendor
    {"SSET", 93, 2, false},       // software version
    {"SSET", 96, 2, true},        // versions
    {"VOLB", 52, 4, true},        // attributes
    {"VOLB", 64, 4, true},        // machine name
    {"VOLB", 68, 5, true},        // date
    {"VOLB", 74, 4, true},        // machine name
    {"DIRB", 52, 4, true},        // attributes
    {"DIRB", 61, 15, true},       // dates but the last modification
    {"FILE", 52, 4, true},        //
    {"FILE", 61, 15, true},       //
    {"FILE", 76, 8, false},       // ids, which may have gaps
    {"PDAT", 52, 4, true},        //
    {"PDAT", 61, 15, true},       //
    {"CFIL", 52, 24, false},      // reason, place
    {"ESET", 76, 2, false},       // media of the catalog
    {"ESET", 1024, 3072, false},  // fill
    {"CTEX", 0, 88 + 7, false},   // owner, mode
};

// The bytes of an entry of a media's own catalog that its block doesn't have: one reserved byte,
// the address of OS specific data, and a name that the block has in a stream.
void allow_catalog_entries(const std::string& data, std::size_t entry, std::vector<bool>& mask) {
  for (std::size_t length = 0; data.compare(entry + 2, 4, "FEND") != 0; entry += length) {
    length = test::get_le(data, entry, 2);
    if (length == 0) break;  // a set map has no end entry
    const bool volume = data.compare(entry + 2, 4, "VOLB") == 0;
    mask[entry + 35] = true;
    std::fill_n(mask.begin() + entry + (volume ? 52 : 64), 4, true);
  }
}

std::vector<bool> unprotected_bytes(const Media_Bytes& media, bool with_catalog) {
  std::vector<bool> mask(media.data.size());
  std::size_t file = 0;
  std::size_t content = 0;
  for (const auto& [type, at] : media.places) {
    if (type == "FILE") file = at;
    if (type == "STAN") content = at;
    // A file that is marked as corrupt has no entry, and its stream no checksum.
    if (type == "CFIL") {
      std::fill_n(mask.begin() + file + 52, 40, true);
      std::fill_n(mask.begin() + content, 100, true);
    }
    if (type == "TFDD") allow_catalog_entries(media.data, at, mask);
    if (type == "TSMP") {
      std::fill_n(mask.begin() + at + 8 + 28, 2, true);
      std::fill_n(mask.begin() + at + 8 + 62, 18, true);
      allow_catalog_entries(media.data, at + 8 + 91, mask);
    }
    for (const Unprotected& row : unprotected) {
      if (row.type != type || (row.in_catalog && with_catalog)) continue;
      const std::size_t first = at + row.offset;
      std::fill_n(mask.begin() + first, std::min(row.size, mask.size() - first), true);
    }
  }
  return mask;
}

TEST(Verify, Every_flipped_byte_of_protected_data_is_seen) {
  for (const bool with_catalog : {false, true}) {
    const Media_Bytes media = test::rich_media(with_catalog);
    Memory_Store store = test::store_of(media);
    for (const std::string& piece : {media_name, catalog_name}) {
      std::string& bytes = store.held[piece];
      std::vector<bool> mask = unprotected_bytes(media, with_catalog);
      if (piece == catalog_name) mask.assign(bytes.size(), false);
      for (std::size_t i = 0; i < bytes.size(); ++i) {
        // Of a long stretch of fill bytes a few will do.
        if (i >= 64 && i % 61 != 0 && bytes.find_first_not_of('\0', i - 64) > i + 64) continue;
        const char before = bytes[i];
        bytes[i] = static_cast<char>(before ^ 1 << i * 5 % 8);
        const auto faults = MTF::verify_job(store, test::job_of(), nullptr).faults;
        EXPECT_TRUE(faults != 0 || mask[i]) << piece << " at " << i;
        bytes[i] = before;
      }
    }
  }
}

TEST(Verify, Every_cut_is_seen) {
  const Media_Bytes media = test::rich_media(true);
  const Memory_Store whole = test::store_of(media);
  for (const std::string& piece : {media_name, catalog_name}) {
    Memory_Store store = whole;
    std::string& bytes = store.held[piece];
    while (!bytes.empty()) {
      bytes.pop_back();
      ASSERT_GT(MTF::verify_job(store, test::job_of(), nullptr).faults, 0u)
          << piece << " of " << bytes.size();
    }
    store.held.erase(piece);
    EXPECT_GT(MTF::verify_job(store, test::job_of(), nullptr).faults, 0u);
  }
}

// What is done to a small media and its catalog, and a fault that must be told of it.
struct Damage {
  const char* name;
  std::function<void(Media_Bytes&, std::string& media, std::string& catalog)> harm;
  std::string piece;
  std::string text;
};

std::size_t place_of(const Media_Bytes& media, const std::string& type, int nth = 0) {
  for (const auto& [name, at] : media.places) {
    if (name == type && nth-- == 0) return at;
  }
  return std::string::npos;
}

void PrintTo(const Damage& damage, std::ostream* out) {
  *out << damage.name;
}

// Sets a field of the header of a block, stream or record, whose checksum stays right.
std::function<void(Media_Bytes&, std::string&, std::string&)> set_block(const char* type,
                                                                        std::size_t offset,
                                                                        unsigned long long value,
                                                                        int width, int nth = 0) {
  return [=](Media_Bytes& media, std::string& bytes, std::string&) {
    const std::size_t at = place_of(media, type, nth);
    test::set_le(bytes, at + offset, value, width);
    test::seal_block(bytes, at);
  };
}
std::function<void(Media_Bytes&, std::string&, std::string&)> set_stream(const char* id,
                                                                         std::size_t offset,
                                                                         unsigned long long value,
                                                                         int width) {
  return [=](Media_Bytes& media, std::string& bytes, std::string&) {
    const std::size_t at = place_of(media, id) - 22;
    test::set_le(bytes, at + offset, value, width);
    test::seal_stream(bytes, at);
  };
}
std::function<void(Media_Bytes&, std::string&, std::string&)> set_record(std::size_t offset,
                                                                         unsigned long long value,
                                                                         int width) {
  return [=](Media_Bytes&, std::string&, std::string& bytes) {
    const std::size_t at = bytes.find("FILE") - 2;
    test::set_le(bytes, at + offset, value, width);
    test::seal_record(bytes, at);
  };
}

class Verify_Damage : public testing::TestWithParam<Damage> {};

TEST_P(Verify_Damage, Is_told) {
  Media_Bytes media = test::small_media();
  Memory_Store store = test::store_of(media);
  GetParam().harm(media, store.held[media_name], store.held[catalog_name]);
  const test::Outcome outcome = test::verify(store);
  const std::string text = "\n" + told(outcome);
  EXPECT_NE(text.find("\n" + GetParam().piece), std::string::npos) << text;
  EXPECT_NE(text.find(GetParam().text), std::string::npos) << text;
}

const Damage damages[] = {
    {"control block id that doesn't rise", set_block("DIRB", 36, 1, 4), media_name,
     "control block id doesn't rise"},
    {"foreign OS", set_block("FILE", 10, 3, 1), media_name, "another OS id"},
    {"address", set_block("FILE", 20, 7, 8), media_name, "stands somewhere else"},
    {"unknown block", set_block("FILE", 0, 0x31313131, 4), media_name, "block of unknown type"},
    {"short block", set_block("FILE", 8, 84, 2), media_name, "offset to its first event"},
    {"long block", set_block("FILE", 8, 0xFFFC, 2), media_name, "runs past the end"},
    {"string outside", set_block("FILE", 86, 0xFFFF, 2), media_name, "string outside itself"},
    {"SSET id", set_block("SSET", 36, 1, 4), media_name, "outside a set"},
    {"stream length", set_stream("STAN", 8, ~0ULL - 30, 8), media_name, "runs past the end"},
    {"unknown stream", set_stream("STAN", 0, 0x31313131, 4), media_name, "unknown kind 0x31313131"},
    {"no checksum", set_stream("CSUM", 0, 0x4145544E, 4), media_name, "no CSUM stream"},
    {"checksum", set_stream("CSUM", 22, 1, 4), media_name, "checksum of the stream's data"},
    {"pad length", set_stream("SPAD", 8, 5, 8), media_name, "SPAD stream"},
    {"frames that aren't", set_stream("STAN", 6, 0x30, 2), media_name, "frame header is damaged"},
    {"CTEX", set_stream("CTEX", 22 + 80, 9, 2), media_name, "CTEX stream has a wrong layout"},
    {"ESET count", set_block("ESET", 56, 1, 4), media_name, "corrupt files wrongly"},
    {"ESET date", set_block("ESET", 84, 1, 1), media_name, "another date than SSET"},
    {"EOTM", set_block("EOTM", 52, 1, 8), media_name, "wrong address of ESET"},
    {"filemark list", set_block("SFMB", 60, 9, 4, 1), media_name, "SFMB block has a wrong entry"},
    {"filemark number", set_block("SFMB", 36, 3, 4, 1), media_name, "wrong number"},
    {"trailing bytes", [](Media_Bytes&, std::string& media, std::string&) { media += "tail"; },
     media_name, "no room for a block"},
    {"record length", set_record(0, 0xFFFF, 2), catalog_name, "wrong length"},
    {"record name", set_record(71, 0xFFF0, 2), catalog_name, "name outside itself"},
    {"record address", set_record(8, ~0ULL, 8), catalog_name, "where this entry points"},
    {"record set", set_record(24, 1, 8), catalog_name, "wrong position of its set"},
    {"record size", set_record(16, 6, 8), catalog_name, "another size than its block"},
    {"record of no job", set_record(6, 9, 2), catalog_name, "job.9.0.mtf"},
    {"space", set_record(48, 1, 8), catalog_name, "total_size"},
};
INSTANTIATE_TEST_SUITE_P(Table, Verify_Damage, testing::ValuesIn(damages));

TEST(Verify, Goes_on_behind_damage) {
  Media_Bytes media = test::rich_media();
  Memory_Store store = test::store_of(media);
  const std::size_t first = place_of(media, "DIRB", 0);
  const std::size_t second = place_of(media, "FILE", 3);
  store.held[media_name][first + 3] ^= 1;
  store.held[media_name][second + 13] ^= 1;
  const std::string text = told(test::verify(store));
  for (const std::size_t at : {first, second}) {
    const std::string line =
        media_name + " " + std::to_string(at) + ": header of a block is damaged";
    EXPECT_NE(text.find(line), std::string::npos) << text;
  }
}

TEST(Verify, A_spot_that_cant_be_read_hides_nothing_around_it) {
  Media_Bytes media = test::rich_media();
  Memory_Store store = test::store_of(media);
  store.bad_from = place_of(media, "DIRB", 1);
  store.bad_to = store.bad_from + 10;
  const test::Outcome outcome = test::verify(store);
  const std::string text = told(outcome);
  EXPECT_NE(
      text.find(std::to_string(store.bad_from) + ": no room for a block, or it can't be read"),
      std::string::npos)
      << text;
  // One entry is lost, and the walk meets the blocks behind it.
  EXPECT_NE(text.find("no sound block of the media stands where this entry points"),
            std::string::npos);
  EXPECT_EQ(outcome.summary.blocks, 18u);
  EXPECT_EQ(outcome.summary.entries, 9u);
}

TEST(Verify, A_block_without_entry_is_told_unless_it_is_corrupt) {
  Media_Bytes media = test::small_media();
  Memory_Store store = test::store_of(media);
  media.entries.pop_back();
  store.held[catalog_name] = media.catalog();
  EXPECT_NE(told(test::verify(store)).find("block has no entry in the catalog"), std::string::npos);
}

TEST(Verify, A_stream_without_checksum_needs_a_CFIL_block) {
  Media_Bytes media;
  media.begin(test::metadata);
  media.volb("/");
  media.file("f", 4, test::modified);
  media.stream("STAN", std::string(4, '\0'), 0, 0x20, false);
  media.file("g", 0, test::modified);
  media.end();
  Memory_Store store = test::store_of(media);
  EXPECT_NE(told(test::verify(store)).find("stream has no CSUM stream"), std::string::npos);
}

TEST(Verify, An_object_left_out_leaves_a_second_pad) {
  Media_Bytes media;
  media.begin(test::metadata);
  media.volb("/");
  media.pad(512);
  media.file("f", 0, test::modified);
  media.pad(512);
  media.pad(512);
  media.end();
  Memory_Store store = test::store_of(media);
  EXPECT_EQ(told(test::verify(store)), "");
}

TEST(Verify, Entries_of_earlier_jobs_are_looked_up_in_their_media) {
  Media_Bytes first = test::small_media();
  Media_Bytes second(2);
  second.begin(test::metadata);
  second.volb("/");
  second.dirb("d\\", test::modified);
  second.end();
  second.entries.push_back(first.entries.back());
  Memory_Store store = test::store_of(first);
  for (const auto& [name, data] : test::store_of(second, 2).held) store.held[name] = data;
  EXPECT_EQ(told(test::verify(store, test::job_of(2))), "");

  const std::size_t block = place_of(first, "FILE");
  const struct {
    std::size_t at;
    const char* text;
  } harms[] = {{block + 88, "block of another name"},
               {block + 56, "block of another date"},
               {block + 30, "no sound block stands"},
               {place_of(first, "SSET"), "set of the entry in job.1.0.mtf"}};
  for (const auto& harm : harms) {
    Memory_Store damaged = store;
    damaged.held[media_name][harm.at] ^= 1;
    EXPECT_NE(told(test::verify(damaged, test::job_of(2))).find(harm.text), std::string::npos);
  }
  store.held.erase(media_name);
  EXPECT_NE(told(test::verify(store, test::job_of(2))).find("no such piece"), std::string::npos);
}

TEST(Verify, A_channel_that_the_metadata_counts_is_missed) {
  Media_Bytes media;
  media.begin(R"({"channels":2,"seq":1})");
  media.volb("/");
  media.end();
  Memory_Store store;
  store.held["job.1.1.mtf"] = media.data;
  store.held["job.1.1.cat"] = media.catalog();
  std::vector<MTF::Job_Pieces> jobs;
  std::string error;
  ASSERT_TRUE(MTF::find_jobs(store, "", jobs, error));
  ASSERT_EQ(jobs.size(), 1u);
  EXPECT_FALSE(jobs[0].complete);
  EXPECT_NE(told(test::verify(store, jobs[0])).find("job.1.2.cat 0: the piece is missing"),
            std::string::npos);
  store.held["job.1.2.mtf"] = media.data;
  store.held["job.1.2.cat"] = media.catalog();
  store.held["other.3.0.cat"] = "";
  ASSERT_TRUE(MTF::find_jobs(store, "job", jobs, error));
  ASSERT_EQ(jobs.size(), 1u);
  EXPECT_TRUE(jobs[0].complete);
  EXPECT_EQ(told(test::verify(store, jobs[0])), "");
}

// Gives a media whose blocks all claim the rest of it, and counts the bytes that are asked for.
class Counted_Store : public MTF::IPiece_Store {
 public:
  explicit Counted_Store(std::string media) : media_(std::move(media)) {}

  bool pieces(std::vector<std::string>&, std::string&) override { return true; }
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string&) override {
    if (name != "job.1.0.mtf") return nullptr;
    return std::make_unique<Reader>(*this);
  }

  unsigned long long read = 0;

 private:
  struct Reader : MTF::IRandom_Reader {
    explicit Reader(Counted_Store& from) : store(from) {}
    unsigned long long size() const override { return store.media_.size(); }
    long long read_at(unsigned long long at, char* data, unsigned long long size) override {
      store.read += size;
      return static_cast<long long>(store.media_.copy(data, size, at));
    }
    Counted_Store& store;
  };

  std::string media_;
};

TEST(Verify, Streams_that_overlap_cost_no_square_of_the_media) {
  constexpr std::size_t size = 0x800000;
  constexpr std::size_t blocks = 64;
  const std::string block = test::small_media().data.substr(0, 94);
  const char* const kinds[] = {"STAN", "SPAD"};
  for (const char* kind : kinds) {
    std::string media(size, 'x');
    for (std::size_t i = 0; i < blocks; ++i) {
      std::string head = test::Bytes().raw(block).zeros(2).data;
      test::set_le(head, 8, head.size(), 2);
      test::set_le(head, 20, i, 8);
      test::seal_block(head, 0);
      const std::size_t rest = size - 1024 - i * 512 - head.size() - 46;
      test::Bytes stream;
      stream.raw(kind).le(0, 2).le(kind[1] == 'T' ? 0x10 : 0, 2).le(rest + 1, 8).le(1, 4).zeros(2);
      test::seal_stream(stream.data, 0);
      test::Bytes frame;
      frame.raw("FH").le(0x10, 2).le(rest + 1, 8).le(rest, 4).le(rest, 4).le(1, 1).zeros(1);
      head += stream.data + frame.le(test::xor16(frame.data, 0, 22), 2).data;
      media.replace(i * 512, head.size(), head);
    }
    Counted_Store store(std::move(media));
    const MTF::Verify_Summary summary = MTF::verify_job(store, test::job_of(), nullptr);
    EXPECT_GT(summary.faults, 0u);
    EXPECT_LT(store.read, 4 * size) << kind;
  }
}

}  // namespace
