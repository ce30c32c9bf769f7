#include "tests/support/job_media.h"

namespace test {

const std::string modified = date(2020, 2, 29, 12, 34, 56);
const std::string metadata = R"({"channels":0,"seq":1})";

MTF::Job_Pieces job_of(unsigned int seq) {
  return {"job", seq, {0}, true};
}

Media_Bytes media_of(const std::function<void(Media_Bytes&)>& fill, unsigned int seq) {
  Media_Bytes media(seq);
  media.begin(metadata);
  media.volb("/");
  fill(media);
  media.end();
  return media;
}

std::size_t place_of(const Media_Bytes& media, const std::string& type, int nth) {
  for (const auto& [name, at] : media.places) {
    if (name == type && nth-- == 0) return at;
  }
  return std::string::npos;
}

Media_Bytes rich_media(bool with_catalog) {
  Media_Bytes media;
  media.with_catalog = with_catalog;
  media.begin(metadata);
  media.volb("/");
  media.pdat("pre_action_data");
  media.stream("STAN", "before the job", 0, 2);
  media.stream("STAN", "", 8, 4);
  media.dirb("home\\", modified);
  media.dirb("home\\me\\", modified);
  media.file("a.txt", 11, modified);
  media.stan("hello world");
  media.ctex(0100640, 1000, 1001, "me", "users");
  media.file("empty", 0, modified);
  media.ctex(0100600, 0, 0, "", "");
  media.file("bad", 100, modified);
  media.stream("STAN", std::string(100, '\0'), 0, 0x20, false);
  media.cfil(0x10000, 40, 1);
  media.file("holes", 10000, modified);
  media.stan("");
  media.spar(4096, "in the middle");
  media.spar(10000, "");
  media.dirb_with_pnam("home\\long\\", modified);
  media.file_with_fnam("long", 3, modified);
  media.stan("xyz");
  media.end();
  return media;
}

Media_Bytes small_media(const std::string& name) {
  return media_of([&name](Media_Bytes& media) {
    media.dirb("d\\", modified);
    media.file(name, 5, modified);
    media.stan("12345");
    media.ctex(0100644, 0, 0, "", "");
  });
}

Memory_Store store_of(const Media_Bytes& media, unsigned int seq) {
  Memory_Store store;
  const std::string stem = "job." + std::to_string(seq) + ".0";
  store.held[stem + ".mtf"] = media.data;
  store.held[stem + ".cat"] = media.catalog();
  return store;
}

Outcome verify(Memory_Store& store, const MTF::Job_Pieces& job) {
  Outcome outcome;
  outcome.summary = MTF::verify_job(
      store, job, [&](const MTF::Fault& fault) { outcome.faults.push_back(fault); });
  return outcome;
}

std::string told(const Outcome& outcome) {
  std::string text;
  for (const MTF::Fault& fault : outcome.faults) {
    text += fault.piece + " " + std::to_string(fault.position) + ": " + fault.text + "\n";
  }
  return text;
}

std::string told(Memory_Store& store, const MTF::Job_Pieces& job) {
  return told(verify(store, job));
}

}  // namespace test
