#include <memory>

#include "agent/commands.h"
#include "agent/exit_code.h"
#include "agent/mount_session.h"
#include "agent/storage.h"
#include "agent/text.h"
#include "platform/mount_point.h"

namespace agent {
namespace {

int run_mount(const Mount_Options& options, Console& console) {
  std::string error;
  const std::unique_ptr<IStorage> storage = make_storage(options.storage, error);
  if (!storage) {
    console.note("mtf-agent: " + error);
    return exit_usage;
  }
  Mounted_Jobs jobs(*storage, options.stem, console);
  if (!storage->open_for_reading(error) || !jobs.look(error)) {
    console.note("error: " + error);
    return exit_failed;
  }
  if (platform::is_mounted(options.directory, "fuse.mtf")) {
    console.note("error: jobs are mounted at " + escape_name(options.directory) +
                 " already: end that mount first");
    return exit_failed;
  }
  if (jobs.root().empty()) {
    console.note("error: there is no complete job of '" + options.stem + "'");
    return exit_failed;
  }
  return run_mount_session(options, jobs, console);
}

}  // namespace

void add_mount(CLI::App& app, Command& chosen) {
  auto options = std::make_shared<Mount_Options>();
  CLI::App* command = app.add_subcommand("mount", "Show jobs as a read-only file system");
  command->footer(
      "DIR then holds a directory for each complete job, named by its number, and links to them:\n"
      "'latest', and the date of each in UTC, such as 2026-11-23T09-15. A job is laid out as\n"
      "restore lays it out. Before a file's first byte is given its checksums are compared, so\n"
      "reading a damaged one gives an I/O error, and a line here says why. The command stays in\n"
      "the foreground; Ctrl-C or 'umount DIR' ends it.\n"
      "A user who isn't root needs fusermount3 (Debian's fuse3), the right to read and write\n"
      "/dev/fuse and a DIR of his own, and ends it with 'fusermount3 -u DIR'; for --allow-other\n"
      "/etc/fuse.conf must hold user_allow_other.\n"
      "Exit codes: 0 unmounted; 1 failed; 2 wrong use.");
  command->add_option("DIR", options->directory, "The directory to mount at")->required();
  add_storage(*command, options->storage);
  add_name(*command, options->stem)->required();
  command->add_flag("--allow-other", options->allow_other,
                    "Let other users in, as far as the modes of the files do");
  command->callback([options, &chosen] {
    chosen = [options](Console& console) { return run_mount(*options, console); };
  });
}

}  // namespace agent
