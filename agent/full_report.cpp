#include "agent/full_report.h"

#include <new>

#include "agent/exit_code.h"
#include "agent/json_text.h"
#include "agent/text.h"
#include "mtf/writer/backup_context.h"

namespace agent {
namespace {

std::string failure_text(const Full_Result& result) {
  if (result.canceled) return "the job was cancelled";
  switch (result.err_code) {
    case MTF::error_piece_open:
      return "a piece can't be opened";
    case MTF::error_write:
      return "writing failed";
    case MTF::error_catalog:
      return "the catalog refused an entry";
    case MTF::error_catalog_open:
      return "the catalog can't be opened";
    case MTF::error_nothing_saved:
      return "all entries were skipped, nothing was saved";
    default:
      return "the job failed";
  }
}

unsigned long long number(const json_spirit::Value& document, const char* key) {
  const auto found = document.find(key);
  return found != document.end() && found->is_number() ? found->get<unsigned long long>() : 0;
}

int exit_code(const Full_Result& result, const Job_Events& events) {
  if (!result.done || result.canceled) return exit_failed;
  const bool whole = result.err_code == 0 && events.corrupt() == 0;
  return whole ? exit_done : exit_skipped;
}

// What is known of every job, whether or not it started.
std::string summary_json(const Full_Options& options, const Job_Events& events, int code,
                         const std::string& message, json_spirit::Document summary) {
  summary["name"] = options.stem;
  summary["exit_code"] = code;
  summary["message"] = message;
  summary["corrupt_files"] = events.corrupt();
  summary["skipped_dirs"] = events.skipped_dirs.load();
  summary["skipped_files"] = events.skipped_files.load();
  return "{\"summary\":" + json_text(summary) + '}';
}

std::string summary_json(const Full_Options& options, const Full_Result& result,
                         const Job_Events& events, int code) {
  json_spirit::Document summary = events.summary();
  summary["seq"] = result.seq;
  summary["err_code"] = result.err_code;
  summary["canceled"] = result.canceled;
  summary["seconds"] = result.seconds;
  const std::string reason = result.err_msg.empty() ? "" : ": " + result.err_msg;
  return summary_json(options, events, code,
                      code == exit_failed ? failure_text(result) + reason : "", summary);
}

void print_summary(const Full_Options& options, const Full_Result& result, const Job_Events& events,
                   Console& console) {
  const json_spirit::Document summary = events.summary();
  console.line("job " + std::to_string(result.seq) + " of '" + options.stem +
               "': " + count_text(number(summary, "inc_file_count"), "file") + " and " +
               directories_text(number(summary, "dir_count")) + ", " +
               size_text(events.progress().done_size) + " saved, " +
               size_text(number(summary, "storage_size")) + " on the storage, in " +
               duration_text(result.seconds));
  const unsigned long long skipped = events.skipped_dirs + events.skipped_files;
  if (skipped != 0 || events.corrupt() != 0) {
    console.line("skipped: " + directories_text(events.skipped_dirs) + ", " +
                 count_text(events.skipped_files, "file") +
                 "; went bad while they were read: " + count_text(events.corrupt(), "file"));
  }
}

void print(const Full_Options& options, const Full_Result& result, const Job_Events& events,
           int code, Console& console) {
  if (code == exit_failed) {
    console.note("error: " + failure_text(result) +
                 (result.err_msg.empty() ? "" : ": " + escape_controls(result.err_msg)));
  }
  if (options.json) {
    console.line_now(summary_json(options, result, events, code));
  } else if (code != exit_failed && !options.quiet) {
    print_summary(options, result, events, console);
  }
}

}  // namespace

int report_full(const Full_Options& options, const Full_Result& result, const Job_Events& events,
                Console& console) {
  const int code = exit_code(result, events);
  try {
    print(options, result, events, code, console);
    if (code != exit_failed && !console.finish()) {
      console.note("job " + std::to_string(result.seq) + " of '" + options.stem + "' is saved");
    }
  } catch (const std::bad_alloc&) {
    // The job stays done or failed, whether or not that can be shown.
    console.note("warning: out of memory, the result can't be shown");
  }
  return code;
}

int report_refusal(const Full_Options& options, int code, const std::string& message,
                   Console& console) {
  console.note((code == exit_usage ? "mtf-agent: " : "error: ") + message);
  if (options.json) {
    Notes notes(console, true);
    console.line_now(summary_json(options, Job_Events(notes, true), code, message, {}));
  }
  return code;
}

}  // namespace agent
