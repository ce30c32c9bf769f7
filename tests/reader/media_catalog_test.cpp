#include <gtest/gtest.h>

#include <algorithm>

#include "mtf/reader/jobs.h"
#include "tests/support/job_media.h"

namespace {

using List = decltype(&MTF::list_job);

// The entries, one line each; with "!" and its text a fault.
std::string listed(List list, test::Memory_Store& store) {
  std::string text;
  const bool sound = list(
      store, test::job_of(),
      [&](const MTF::Job_Entry& entry) {
        text += std::to_string(entry.type) + " " + entry.path + " " + std::to_string(entry.size) +
                " " + std::to_string(entry.mtime) + " " + std::to_string(entry.seq) + " " +
                std::to_string(entry.channel) + " " + std::to_string(entry.address) + "\n";
      },
      [&](const MTF::Fault& fault) { text += "!" + fault.text + "\n"; });
  EXPECT_EQ(sound, text.find('!') == std::string::npos);
  return text;
}

// The position of the data of stream `id`.
std::size_t data_of(const test::Media_Bytes& media, const std::string& id) {
  return media.data.rfind(id) + 22;
}

TEST(List_From_Media, Is_the_list_of_the_catalog) {
  test::Memory_Store store = test::store_of(test::rich_media(true));
  const std::string wanted = listed(MTF::list_job, store);
  EXPECT_EQ(std::count(wanted.begin(), wanted.end(), '\n'), 9);
  store.held.erase("job.1.0.cat");
  EXPECT_EQ(listed(MTF::list_job_from_media, store), wanted);
}

TEST(List_From_Media, Says_what_is_missing_or_damaged) {
  const test::Media_Bytes media = test::rich_media(true);
  const auto with = [&](std::size_t at, const std::string& bytes) {
    std::string data = media.data;
    return data.replace(at, bytes.size(), bytes);
  };
  const std::size_t entries = data_of(media, "TFDD");
  const std::pair<std::string, const char*> cases[] = {
      {test::rich_media(false).data, "media has no catalog of its own, or it is damaged"},
      {"", "doesn't begin with a sound TAPE block"},
      {with(20, "x"), "doesn't begin with a sound TAPE block"},
      {media.data.substr(0, 40960), "media doesn't end with a sound EOTM block"},
      {with(media.data.rfind("ESET"), "x"),
       "no sound ESET block stands behind the catalog of the media"},
      {with(media.data.find("ESET"), "x"), "EOTM block doesn't point to a sound ESET block"},
      {with(media.data.rfind("TSMP"), "x"), "catalog of the media has no sound TSMP stream"},
      {with(entries, std::string(2, '\xFF')), "TFDD entry is damaged"},
      {with(entries + 6, "x"), "entry belongs to another media"},
      {with(entries + 12, std::string(8, '\xFF')), "entry points to a wrong place on the media"},
      {with(data_of(media, "TSMP") + 8 + 44, "x"),
       "set map counts other entries than the TFDD stream has"},
  };
  for (const auto& [data, text] : cases) {
    test::Memory_Store store;
    store.held["job.1.0.mtf"] = data;
    EXPECT_NE(listed(MTF::list_job_from_media, store).find("!" + std::string(text) + "\n"),
              std::string::npos)
        << text;
  }
}

TEST(Verify_Media_Catalog, Tells_a_corrupt_file_listed_for_a_sound_one) {
  const test::Media_Bytes media = test::rich_media(true);
  std::string data = media.data;
  // The entry of `holes` is made one of the corrupt `bad`, which stands right before it.
  std::size_t bad = 0, holes = 0;
  for (const auto& [id, at] : media.places) {
    if (id == "CFIL") break;
    if (id == "FILE") bad = at;
  }
  const std::size_t entry = data.find("holes", data_of(media, "TFDD")) - 68;
  holes = test::get_le(data, entry + 12, 8) * 512;
  ASSERT_GT(holes, bad);
  test::set_le(data, entry + 12, bad / 512, 8);
  test::Memory_Store store = test::store_of(media);
  store.held["job.1.0.mtf"] = data;
  EXPECT_NE(test::told(store).find("doesn't list each block of the set once"), std::string::npos);
}

TEST(Verify_Media_Catalog, Tells_ESET_blocks_that_differ) {
  const test::Media_Bytes media = test::rich_media(true);
  test::Memory_Store store = test::store_of(media);
  std::string& data = store.held["job.1.0.mtf"];
  data[data.rfind("ESET") + 2000] = 'x';
  EXPECT_NE(test::told(store).find("second ESET block differs from the first one"),
            std::string::npos);
}

}  // namespace
