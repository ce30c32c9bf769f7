// The description of a job, owned by the host and printed into the metadata stream of each media
// and catalog: one JSON object.
#pragma once

#include <map>
#include <optional>
#include <sstream>
#include <string>

namespace MTF {

// The key under which a host notes the number of the job that an incremental one started from.
inline constexpr const char* base_seq_key = "base_seq";

// Must not change while a job runs. The job sets all but the host's own texts, base_seq_key among
// them.
class Metadata {
 public:
  // The number of channels; 0 for a job of one channel.
  void set_channels(long long n) { channels_ = n; }

  // The name of the hash that spreads files over the channels; unset in a job of one channel.
  void set_hash_algorithm(const std::string& name) { hash_algorithm_ = name; }

  // The sequence number of the job.
  void set_seq(unsigned int seq) { seq_ = seq; }

  // The second since 1970 in which a careful job began to look at its sources; without a value the
  // record doesn't say.
  void set_began(std::optional<long long> second) { began_ = second; }

  // Adds a text of the host's own under `key`. The keys above win over one of the same name.
  void set(const std::string& key, const std::string& value) { host_[key] = value; }

  // Prints the record as one JSON object with sorted keys. A byte of the host's texts that isn't
  // UTF-8 comes out as U+FFFD. False if the stream refuses it.
  bool to_s(std::stringstream& out) const;

 private:
  long long channels_ = 0;
  unsigned int seq_ = 0;
  std::string hash_algorithm_;
  std::optional<long long> began_;
  std::map<std::string, std::string> host_;
};

// What a printed record says.
struct Metadata_Record {
  unsigned long long channels = 0;  // 0 for a job of one channel
  unsigned int seq = 0;             // 0 where it isn't said
  std::optional<long long> began;
  std::map<std::string, std::string> host;
};

// Reads what Metadata::to_s() printed. False if `text` isn't one JSON object that says the number
// of channels.
bool read_metadata(const std::string& text, Metadata_Record& out);

}  // namespace MTF
