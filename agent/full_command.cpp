#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <new>

#include "agent/commands.h"
#include "agent/exclude_filter.h"
#include "agent/exit_code.h"
#include "agent/full_plan.h"
#include "agent/full_report.h"
#include "agent/job_events.h"
#include "agent/job_log.h"
#include "agent/progress.h"
#include "agent/rclone.h"
#include "agent/storage_channel.h"
#include "agent/text.h"
#include "mtf/writer/backup.h"
#include "mtf/writer/backup_context.h"
#include "platform/file.h"
#include "platform/host.h"
#include "platform/signals.h"
#include "services/metadata.h"
#include "services/no_throw.h"
#include "services/settings.h"

namespace agent {
namespace {

std::atomic<MTF::Event_Handler*> running_events{nullptr};
std::atomic<bool> stop_asked{false};

void stop_running_job(int) {
  stop_asked = true;
  stop_writing_calls();
  if (MTF::Event_Handler* events = running_events.load()) events->set_canceling();
}

MTF::Job_Settings job_settings(const Full_Options& options, const Full_Plan& plan) {
  MTF::Job_Settings settings;
  settings.minor_resource_id = options.stem.c_str();
  settings.base_seq = plan.base_seq;
  settings.seq = plan.seq;
  settings.channels = options.channels;
  settings.compression_method = plan.compression;
  if (!plan.shadows.empty()) settings.volume_map = &plan.shadows;
  settings.compression_level = options.level;
  settings.cache_dir = plan.work_dir.path().c_str();
  settings.threads = options.threads;
  return settings;
}

// The processors are shared by the channels.
int compression_threads(unsigned int channels) {
  return static_cast<int>(std::max(1U, platform::processor_count() / channels));
}

// Opens the pre-action data and gives its handle; `file` keeps it open.
bool open_pre_action(const std::string& path, platform::File& file, void*& handle) {
  handle = MTF::Backup::no_pre_action_data;
  if (path.empty()) return true;
  constexpr std::intptr_t standard_input = 0;
  if (path != "-" && !file.open_input(path)) return false;
  handle = reinterpret_cast<void*>(path == "-" ? standard_input
                                               : static_cast<std::intptr_t>(file.handle()));
  return true;
}

// One job from the first setter to the clean storage of one that failed.
Full_Result save(const Full_Options& options, const Full_Plan& plan, void* pre_action,
                 IStorage& storage, MTF::Ref_Ptr<MTF::Event_Handler> events,
                 std::shared_ptr<Job_Log> log, Console& console) {
  Full_Result result;
  MTF::Metadata metadata;
  metadata.set("name", options.stem);
  metadata.set("host", MTF::Host_Manager::instance()->name());
  if (options.incremental) metadata.set(MTF::base_seq_key, std::to_string(plan.base_seq));
  Piece_Namer pieces(storage);
  const Exclude_Filter filter(plan.user_excludes, options.exclude_globs);
  MTF::Job_Settings settings = job_settings(options, plan);
  // Null without memory: the job then fails, with a line that says so.
  settings.channel_factory = MTF::share<MTF::Channel_Factory>(
      new (std::nothrow) Storage_Channel_Factory(pieces, events.get()));
  // A job without a filter needn't make the path of each entry.
  if (!filter.is_empty()) settings.filter = &filter;
  settings.pre_action_data = pre_action;
  MTF::Backup backup(events, metadata, log);
  for (const std::string& source : plan.sources) backup.add_source(source);
  backup.backup_read(!options.plain);
  backup.careful(!options.no_careful);
  backup.save_links(!options.no_links);
  backup.read_ahead(true);
  backup.compression_threads(compression_threads(options.channels));
  backup.exclude_list(&plan.excludes);
  const bool started = backup.init(settings);
  if (started) {
    const Progress progress(*events, console, !options.quiet && !options.json);
    result.done = options.incremental ? backup.incremental() : backup.full();
  }
  // The channels drop their pieces as soon as a cancel is asked for. So it counts even if it came
  // too late to stop the job.
  result.canceled = stop_asked;
  result.seq = backup.seq();
  result.err_code = backup.err_code();
  backup.clean();
  std::string naming_error;
  if (result.done && !result.canceled) {
    result.done = MTF::no_throw("Storage", false, [&] { return pieces.name_all(naming_error); });
    if (!result.done) result.err_code = MTF::error_write;
  }
  // A job that didn't start still has the number of the job before.
  if (started && (!result.done || result.canceled)) backup.remove_storage_file();
  // Behind the removal, which short memory must not prevent.
  result.err_msg = naming_error.empty() ? backup.err_msg() : naming_error;
  if (!result.done && result.err_msg.empty()) result.err_msg = log->held_back();
  return result;
}

void tell_cleared(const IStorage& storage, const Work_Directory& work_dir, Console& console) {
  std::vector<std::string> cleared = storage.cleared();
  cleared.insert(cleared.end(), work_dir.cleared().begin(), work_dir.cleared().end());
  if (!cleared.empty()) console.note(cleared_text(cleared));
}

}  // namespace

int run_full(const Full_Options& options, Console& console) {
  const auto start = std::chrono::steady_clock::now();
  Notes notes(console, options.verbose || options.json);
  auto log = std::make_shared<Job_Log>(notes, !options.incremental);
  log->attach();
  const platform::Private_Files private_files;
  stop_asked = false;
  platform::watch_stop_signals(stop_running_job);
  Full_Plan plan;
  std::string error;
  const std::unique_ptr<IStorage> storage = make_storage(options.storage, error, options.tmp);
  if (!storage) return report_refusal(options, exit_usage, error, console);
  const int code = make_full_plan(options, *storage, plan, error);
  tell_cleared(*storage, plan.work_dir, console);
  if (code != exit_done) return report_refusal(options, code, error, console);
  platform::File pre_action_file;
  void* pre_action;
  if (!open_pre_action(options.pre_action, pre_action_file, pre_action)) {
    return report_refusal(options, exit_failed, error_text(options.pre_action, errno), console);
  }
  auto* events = new (std::nothrow) Job_Events(notes, options.json);
  const auto shared_events = MTF::share<MTF::Event_Handler>(events);
  if (shared_events.get() == nullptr) throw std::bad_alloc();
  running_events = events;
  log->events(events);
  // A signal during the preparations.
  if (stop_asked) events->set_canceling();
  Full_Result result = save(options, plan, pre_action, *storage, shared_events, log, console);
  running_events = nullptr;
  log->events(nullptr);
  notes.flush();
  if (!plan.work_dir.remove()) {
    console.note("warning: " + error_text("temporary files are left", errno));
  }
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return report_full(options, result, *events, console);
}

}  // namespace agent
