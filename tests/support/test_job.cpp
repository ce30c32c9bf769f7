#include "tests/support/test_job.h"

#include "tests/support/spared.h"

namespace test_support {

int Events::handle_event(int code, const json_spirit::Value& document) {
  const Spared spared;
  if (on_event) on_event();
  const std::lock_guard<std::mutex> lock(mutex_);
  events_.emplace_back(code, document);
  return 0;
}

std::vector<json_spirit::Value> Events::all(int code) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<json_spirit::Value> documents;
  for (const auto& event : events_) {
    if (event.first == code) documents.push_back(event.second);
  }
  return documents;
}

std::vector<std::string> Events::texts(int code) const {
  std::vector<std::string> texts;
  for (const auto& document : all(code)) texts.push_back(document.dump());
  return texts;
}

Test_Job::Test_Job(Fault fault, unsigned filemark_size)
    : storage(fault, filemark_size),
      channels(new Fault_Factory(storage)),
      handler(new Events),
      events(static_cast<Events&>(*handler)),
      backup(handler, metadata, log),
      cache_dir(tmp / "cache"),
      capture_(*log) {
  backup.backup_read(false);
}

Test_Job::~Test_Job() {
  backup.clean();
}

bool Test_Job::init(const std::string& source, unsigned long long count, unsigned seq) {
  if (!source.empty() && !backup.add_source(source)) return false;
  return backup.init("j", filter, seq - 1, seq - 1, count, compression, MTF::sparse_default,
                     channels, callbacks, volume_map, pre_action, 1, cache_dir.c_str(), threads);
}

bool Test_Job::run(const std::string& source, unsigned long long count) {
  return init(source, count) && backup.full();
}

bool Test_Job::run_second(const std::string& source,
                          const std::map<std::string, std::string>& earlier,
                          unsigned long long count) {
  {
    const Spared spared;
    storage.pieces = earlier;
  }
  return init(source, count, 2) && backup.incremental();
}

std::string Test_Job::piece(unsigned n, const char* ending) const {
  return storage.bytes("j.1." + std::to_string(n) + ending);
}

}  // namespace test_support
