#include <gtest/gtest.h>

#include <functional>
#include <map>

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
    EXPECT_EQ(test::told(outcome), "");
    EXPECT_EQ(outcome.summary.entries, 9u);
    EXPECT_EQ(outcome.summary.corrupt_files, 1u);
    EXPECT_EQ(outcome.summary.blocks, with_catalog ? 20u : 19u);
    EXPECT_EQ(outcome.summary.bytes, media.data.size() + media.catalog().size());
  }
}

// How many bytes neither a checksum nor a second copy covers, by the block or stream that they
// belong to: attributes, versions, vendors, dates but the one of the modification, ids that may
// have gaps, owners and modes, and the content of the file that is marked as corrupt.
std::string unprotected_bytes(const Media_Bytes& media, const std::string& piece) {
  std::map<std::string, int> unseen;
  Memory_Store store = test::store_of(media);
  std::string& bytes = store.held[piece];
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    // Of a long stretch of fill bytes a few will do.
    if (i >= 64 && i % 61 != 0 && bytes.find_first_not_of('\0', i - 64) > i + 64) continue;
    const char before = bytes[i];
    bytes[i] = static_cast<char>(before ^ 1 << i * 5 % 8);
    std::string type;
    for (const auto& [name, at] : media.places) type = at <= i ? name : type;
    unseen[type] += MTF::verify_job(store, test::job_of(), nullptr).faults == 0;
    bytes[i] = before;
  }
  std::string text;
  for (const auto& [type, count] : unseen) {
    if (count != 0) text += type + ' ' + std::to_string(count) + ' ';
  }
  return text;
}

TEST(Verify, Every_flipped_byte_of_protected_data_is_seen) {
  const Media_Bytes media = test::rich_media(), with_catalog = test::rich_media(true);
  EXPECT_EQ(unprotected_bytes(media, media_name),
            "CFIL 9 CTEX 172 DIRB 57 ESET 115 FILE 107 PDAT 19 SSET 6 STAN 100 TAPE 9 VOLB 14 ");
  // The media's own catalog has a second copy of much of it.
  EXPECT_EQ(unprotected_bytes(with_catalog, media_name),
            "CFIL 9 CTEX 172 FILE 31 STAN 100 TAPE 5 ");
  EXPECT_EQ(unprotected_bytes(media, catalog_name), "");
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

// Fields of headers, of which the checksum stays right, and what must be told of the change.
TEST(Verify, A_wrong_field_is_told) {
  const struct {
    const char* type;  // of the block or stream; empty for a record of the catalog
    std::size_t offset;
    unsigned long long value;
    int width;
    const char* text;
    int nth = 0;
  } cases[] = {
      {"DIRB", 36, 1, 4, "control block id doesn't rise"},
      {"FILE", 10, 3, 1, "another OS id"},
      {"FILE", 20, 7, 8, "stands somewhere else"},
      {"FILE", 0, 0x31313131, 4, "block of unknown type"},
      {"FILE", 8, 84, 2, "offset to its first event"},
      {"FILE", 8, 0xFFFC, 2, "runs past the end"},
      {"FILE", 86, 0xFFFF, 2, "string outside itself"},
      {"SSET", 36, 1, 4, "outside a set"},
      {"STAN", 8, ~0ULL - 30, 8, "runs past the end"},
      {"STAN", 0, 0x31313131, 4, "unknown kind 0x31313131"},
      {"CSUM", 0, 0x4145544E, 4, "no CSUM stream"},
      {"CSUM", 22, 1, 4, "checksum of the stream's data"},
      {"SPAD", 8, 5, 8, "SPAD stream"},
      {"STAN", 6, 0x30, 2, "frame header is damaged"},
      {"CTEX", 22 + 80, 9, 2, "CTEX stream has a wrong layout"},
      {"ESET", 56, 1, 4, "corrupt files wrongly"},
      {"ESET", 84, 1, 1, "another date than SSET"},
      {"EOTM", 52, 1, 8, "wrong address of ESET"},
      {"SFMB", 60, 9, 4, "SFMB block has a wrong entry", 1},
      {"SFMB", 36, 3, 4, "wrong number", 1},
      {"", 0, 0xFFFF, 2, "wrong length"},
      {"", 71, 0xFFF0, 2, "name outside itself"},
      {"", 8, ~0ULL, 8, "where this entry points"},
      {"", 24, 1, 8, "wrong position of its set"},
      {"", 16, 6, 8, "another size than its block"},
      {"", 6, 9, 2, "job.9.0.mtf"},
      {"", 48, 1, 8, "total_size"},
  };
  const Media_Bytes media = test::small_media();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.text);
    const bool record = *each.type == '\0';
    Memory_Store store = test::store_of(media);
    std::string& bytes = store.held[record ? catalog_name : media_name];
    const std::size_t place =
        record ? bytes.find("FILE") - 2 : place_of(media, each.type, each.nth);
    const bool block = bytes.compare(place, 4, each.type) == 0;
    const std::size_t at = record || block ? place : place - 22;
    test::set_le(bytes, at + each.offset, each.value, each.width);
    (record ? test::seal_record : block ? test::seal_block : test::seal_stream)(bytes, at);
    const std::string text = '\n' + test::told(store);
    EXPECT_NE(text.find('\n' + (record ? catalog_name : media_name)), std::string::npos) << text;
    EXPECT_NE(text.find(each.text), std::string::npos) << text;
  }
  Memory_Store store = test::store_of(media);
  store.held[media_name] += "tail";
  EXPECT_NE(test::told(store).find("no room for a block"), std::string::npos);
}

TEST(Verify, Goes_on_behind_damage) {
  Media_Bytes media = test::rich_media();
  Memory_Store store = test::store_of(media);
  const std::size_t first = place_of(media, "DIRB", 0);
  const std::size_t second = place_of(media, "FILE", 3);
  store.held[media_name][first + 3] ^= 1;
  store.held[media_name][second + 13] ^= 1;
  const std::string text = test::told(store);
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
  for (const long long result : {-1, 0}) {  // an error, and a piece that gives less than its size
    store.bad_result = result;
    const test::Outcome outcome = test::verify(store);
    const std::string text = test::told(outcome);
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
}

TEST(Verify, Tells_what_is_missing_or_has_a_wrong_layout) {
  const struct {
    std::function<void(Media_Bytes&)> fill;
    const char* text;
  } cases[] = {
      {[](Media_Bytes& media) { media.entries.pop_back(); }, "block has no entry in the catalog"},
      // A stream without a checksum needs a CFIL block.
      {[](Media_Bytes& media) { media.stream("STAN", std::string(4, '\0'), 0, 0x20, false); },
       "stream has no CSUM stream"},
      {[](Media_Bytes& media) { media.stan("1234"), media.cfil(0x10000, 0, 3); },
       "CFIL block names a stream that isn't there"},
      // An object that is left out leaves a second pad.
      {[](Media_Bytes& media) { media.pad(512), media.pad(512); }, ""},
      {[](Media_Bytes& media) { media.stream("NACL", "no descriptor", 2); }, "NACL"},
      {[](Media_Bytes& media) { media.stream("NTEA", "attributes?"); }, "NTEA"},
      {[](Media_Bytes& media) {
         media.stream("NTEA",
                      test::Bytes().zeros(5).le(1, 1).le(1, 2).raw("u").zeros(1).raw("v").data);
       },
       ""},
  };
  for (const auto& each : cases) {
    Memory_Store store = test::store_of(test::media_of([&each](Media_Bytes& media) {
      media.file("f", 4, test::modified);
      each.fill(media);
    }));
    const std::string text = test::told(store);
    EXPECT_TRUE(*each.text == '\0' ? text.empty() : text.find(each.text) != text.npos) << text;
  }
}

TEST(Verify, Entries_of_earlier_jobs_are_looked_up_in_their_media) {
  Media_Bytes first = test::small_media();
  Media_Bytes second =
      test::media_of([](Media_Bytes& media) { media.dirb("d\\", test::modified); }, 2);
  second.entries.push_back(first.entries.back());
  Memory_Store store = test::store_of(first);
  for (const auto& [name, data] : test::store_of(second, 2).held) store.held[name] = data;
  EXPECT_EQ(test::told(store, test::job_of(2)), "");

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
    EXPECT_NE(test::told(damaged, test::job_of(2)).find(harm.text), std::string::npos);
  }
  store.held.erase(media_name);
  EXPECT_NE(test::told(store, test::job_of(2)).find("no such piece"), std::string::npos);
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
  EXPECT_NE(test::told(store, jobs[0]).find("job.1.2.cat 0: the piece is missing"),
            std::string::npos);
  store.held["job.1.2.mtf"] = media.data;
  store.held["job.1.2.cat"] = media.catalog();
  store.held["other.3.0.cat"] = "";
  ASSERT_TRUE(MTF::find_jobs(store, "job", jobs, error));
  ASSERT_EQ(jobs.size(), 1u);
  EXPECT_TRUE(jobs[0].complete);
  EXPECT_EQ(test::told(store, jobs[0]), "");
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
