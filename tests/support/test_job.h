// One job on a storage in memory.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mtf/writer/backup.h"
#include "services/event_handler.h"
#include "services/json_spirit.h"
#include "services/metadata.h"
#include "tests/support/fault_channel.h"
#include "tests/support/log_lines.h"
#include "tests/support/temp_dir.h"

namespace test_support {

// Keeps the events of a job.
class Events : public MTF::Event_Handler {
 public:
  int handle_event(int code, const json_spirit::Value& document) override;

  // The documents of `code`, in order.
  std::vector<json_spirit::Value> all(int code) const;
  // The same as text.
  std::vector<std::string> texts(int code) const;

  // Called for each event, on the thread that sends it.
  std::function<void()> on_event;

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<int, json_spirit::Value>> events_;
};

class Test_Job {
 public:
  explicit Test_Job(Fault fault = {}, unsigned filemark_size = 0);
  ~Test_Job();

  // Prepares a plain job named `j` and numbered `seq` of `source` and what add_source() was given,
  // for `count` channels.
  bool init(const std::string& source, unsigned long long count = 1, unsigned seq = 1);
  bool run(const std::string& source, unsigned long long count = 1);
  // Runs an incremental job that is based on job 1, whose pieces are `earlier`.
  bool run_second(const std::string& source, const std::map<std::string, std::string>& earlier,
                  unsigned long long count = 1);

  // The media and the catalog of channel `n`.
  std::string media(unsigned n = 0) const { return piece(n, ".mtf"); }
  std::string catalog(unsigned n = 0) const { return piece(n, ".cat"); }

  Temp_Dir tmp;
  Fault_Storage storage;
  std::shared_ptr<Log_Lines> log = std::make_shared<Log_Lines>();
  MTF::Ref_Ptr<MTF::Channel_Factory> channels;
  MTF::Ref_Ptr<MTF::Event_Handler> handler;
  Events& events;
  MTF::Metadata metadata;
  MTF::Backup backup;
  unsigned short compression = 0;
  int threads = 1;  // that scan the sources
  const MTF::IFilter* filter = nullptr;
  const std::map<std::string, std::string>* volume_map = nullptr;
  MTF::Ref_Ptr<MTF::IBackup_Callback_Factory> callbacks;  // of sources of the host
  void* pre_action = MTF::Backup::no_pre_action_data;
  std::string cache_dir;

 private:
  std::string piece(unsigned n, const char* ending) const;
  Capture capture_;
};

}  // namespace test_support
