#include "services/working_path.h"

#include <cerrno>

#include "oxbase/path_conf.h"
#include "oxbase/system.h"
#include "platform/held_directory.h"
#include "platform/tree.h"
#include "services/assertion.h"
#include "services/buffer.h"
#include "services/file_buf.h"
#include "services/local_failure.h"
#include "services/settings.h"

namespace MTF {
namespace {

constexpr unsigned short working_directory_mode = 0750;
constexpr unsigned int owner_only = 0700;
constexpr unsigned int copy_size = 0x10000;
constexpr int most_attempts = 10;

std::string working_directory(const std::string& job_tmp_dir, const std::string& stem) {
  return oxbase::Path_Conf(job_tmp_dir.c_str(), stem.c_str(), false, nullptr,
                           working_directory_mode)
      .str();
}

bool make_tmp_dir(const std::string& job_tmp_dir) {
  if (job_tmp_dir == MTF_Params::instance().job_tmp_dir()) {
    return platform::private_directory(job_tmp_dir);
  }
  errno = platform::make_dirs(job_tmp_dir, owner_only);
  return errno == 0;
}

bool working_path(const std::string& job_tmp_dir, const std::string& option_path,
                  const std::string& stem, unsigned long long channel, const char* ending,
                  std::string& out) {
  const std::string directory = working_directory(job_tmp_dir, stem);
  if (!make_job_tmp_dir(job_tmp_dir)) return false;
  if (!platform::private_directory(directory)) return local_failure("make", directory);
  const std::string name =
      (option_path.empty() ? "" : option_path + ".") + std::to_string(channel) + ending;
  out = oxbase::Path_Conf(directory.c_str(), name.c_str(), false, nullptr, working_directory_mode)
            .str();
  return true;
}

}  // namespace

bool make_job_tmp_dir(const std::string& job_tmp_dir) {
  return make_tmp_dir(job_tmp_dir) || local_failure("make", job_tmp_dir);
}

bool hold_working_directory(const std::string& job_tmp_dir, const std::string& stem,
                            platform::Held_Directory& held) {
  const std::string directory = working_directory(job_tmp_dir, stem);
  make_tmp_dir(job_tmp_dir);
  // The job that had it may remove it between the two steps.
  for (int attempt = 0; attempt < most_attempts; ++attempt) {
    if (!platform::private_directory(directory) || held.take_over(directory)) return true;
    if (errno != ENOENT) break;
  }
  return errno != EWOULDBLOCK;
}

bool remove_working_directory(const std::string& job_tmp_dir, const std::string& stem) {
  const std::string directory = working_directory(job_tmp_dir, stem);
  platform::Held_Directory held;
  if (!held.take_over(directory) && errno == EWOULDBLOCK) return true;
  return oxbase::rm_rf(directory.c_str());
}

bool cat_path(const std::string& job_tmp_dir, const std::string& option_path,
              const std::string& stem, unsigned long long channel, std::string& out) {
  return working_path(job_tmp_dir, option_path, stem, channel, ".cat", out);
}

bool tfdd_path(const std::string& job_tmp_dir, const std::string& option_path,
               const std::string& stem, unsigned long long channel, std::string& out) {
  return working_path(job_tmp_dir, option_path, stem, channel, ".tfdd", out);
}

bool tsmp_path(const std::string& job_tmp_dir, const std::string& option_path,
               const std::string& stem, unsigned long long channel, std::string& out) {
  return working_path(job_tmp_dir, option_path, stem, channel, ".tsmp", out);
}

bool prev_cat_path(const std::string& job_tmp_dir, const std::string& option_path,
                   const std::string& stem, unsigned long long channel, std::string& out) {
  return working_path(job_tmp_dir, option_path, stem, channel, ".prev.cat", out);
}

bool reader_to_file(IReader* reader, const std::string& path) {
  MTF_ASSERT_NOT_NULL(reader, false);
  Buffer buffer(8);
  MTF_FS::ofilebuf file(copy_size);
  if (!buffer.expand(copy_size) ||
      file.open(path.c_str(), MTF_FS::write_flags, MTF_FS::share_all) != 0) {
    return false;
  }
  for (;;) {
    const long long count = reader->read(buffer.data(), buffer.capacity());
    if (count < 0 || count > buffer.capacity()) return false;
    if (count == 0) return file.close() == 0;
    if (file.sputn(buffer.data(), count) != count) return false;
  }
}

}  // namespace MTF
