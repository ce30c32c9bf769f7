// One process of rclone that serves calls.
#pragma once

#include <string>

#include "platform/child_process.h"

namespace agent {

// It has learnt the remote, its keys and ciphers by the second call, where a process for each call
// would learn them anew. It listens on a port of this machine, and serves only who has its
// password, which no other user can see. Once started it may be used from several threads.
class Rclone_Server {
 public:
  Rclone_Server();

  // `setup` names the program and has the patience for the start. The server knows the place
  // "REMOTE:PATH" as the remote `name` too. False, with errno, if it can't be started; what it says
  // by then may tell why.
  bool start(platform::Child_Setup setup, const std::string& name, const std::string& place);

  // "http://127.0.0.1:PORT/".
  const std::string& url() const { return url_; }

  // "USER:PASSWORD".
  std::string login() const { return user_ + ':' + password_; }

  const platform::Child_Process& process() const { return process_; }

 private:
  bool find_url();

  const std::string user_;
  const std::string password_;
  std::string url_;
  platform::Child_Process process_;
};

}  // namespace agent
