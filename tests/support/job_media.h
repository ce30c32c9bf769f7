// Small jobs in memory, and what their verification says.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "mtf/reader/jobs.h"
#include "tests/support/media_bytes.h"

namespace test {

extern const std::string modified;  // a date: 2020-02-29 12:34:56
constexpr long long modified_time = 1582979696;
extern const std::string metadata;  // of a job of one channel

MTF::Job_Pieces job_of(unsigned int seq = 1);

// A media with one of everything; `with_catalog` as in Media_Bytes.
Media_Bytes rich_media(bool with_catalog = false);

// A media of a volume `/` with what `fill` puts behind its block.
Media_Bytes media_of(const std::function<void(Media_Bytes&)>& fill, unsigned int seq = 1);

// Where the `nth` block of a type, or the data of the `nth` stream, starts.
std::size_t place_of(const Media_Bytes& media, const std::string& type, int nth = 0);

// A media with one file of plain content.
Media_Bytes small_media(const std::string& name = "a.txt");

// The pieces of the media's job.
Memory_Store store_of(const Media_Bytes& media, unsigned int seq = 1);

struct Outcome {
  MTF::Verify_Summary summary;
  std::vector<MTF::Fault> faults;
};

Outcome verify(Memory_Store& store, const MTF::Job_Pieces& job = job_of());

// One line for each fault: piece, position, text.
std::string told(const Outcome& outcome);
std::string told(Memory_Store& store, const MTF::Job_Pieces& job = job_of());

}  // namespace test
