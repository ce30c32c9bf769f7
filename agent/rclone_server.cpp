#include "agent/rclone_server.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>

#include "agent/random_id.h"

namespace agent {
namespace {

constexpr int look_pause = 2;  // milliseconds between two looks for its address

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace

Rclone_Server::Rclone_Server() : user_("mtf-agent"), password_(random_id() + random_id()) {}

// The time of a change is the remote's, whatever clock its writer had; it comes with a listing,
// where the writer's takes a call for each object.
bool Rclone_Server::start(platform::Child_Setup setup, const std::string& name,
                          const std::string& place) {
  const std::string remote = "RCLONE_CONFIG_" + upper(name);
  setup.arguments.insert(setup.arguments.end(),
                         {"rcd", "--rc-serve", "--rc-addr", "127.0.0.1:0",
                          "--rc-server-read-timeout", "0", "--rc-server-write-timeout", "0"});
  setup.variables = {{"RCLONE_RC_USER", user_},
                     {"RCLONE_RC_PASS", password_},
                     {remote + "_TYPE", "alias"},
                     {remote + "_REMOTE", place},
                     {"RCLONE_USE_SERVER_MODTIME", "true"},
                     {"RCLONE_LOCAL_NO_SET_MODTIME", "true"},
                     {"RCLONE_SFTP_SET_MODTIME", "false"}};
  if (!process_.start(setup)) return false;
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(setup.patience);
  while (!find_url()) {
    const bool is_late = std::chrono::steady_clock::now() > until;
    if (!is_late && !process_.has_ended(look_pause)) continue;
    errno = is_late ? ETIMEDOUT : ECHILD;
    return false;
  }
  return true;
}

// It says where it listens: "... Serving remote control on http://127.0.0.1:43807/".
bool Rclone_Server::find_url() {
  const std::string start = "http://127.0.0.1:";
  const std::string said = process_.said();
  const std::size_t at = said.find(start);
  if (at == std::string::npos) return false;
  const std::size_t end = said.find_first_not_of("0123456789", at + start.size());
  if (end == std::string::npos) return false;
  url_ = said.substr(at, end - at) + '/';
  return true;
}

}  // namespace agent
