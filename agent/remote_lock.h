// The lock of a chain of jobs on a remote.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/rclone.h"
#include "agent/remote_objects.h"

namespace agent {

// Who holds a lock: the text of its object.
struct Lock_Holder {
  std::string host;
  std::string machine;  // this boot of the host and its space of process numbers
  unsigned int process = 0;
  unsigned long long started = 0;  // tells two processes of one number apart

  // This process.
  static Lock_Holder own();

  std::string text() const;
  static bool parse(const std::string& text, Lock_Holder& out);

  // True if it can be told from here that the process is gone.
  bool is_gone() const;

  // "host 'alpha', process 4711".
  std::string title() const;
};

// Each holder has an object of his own, `STEM.lock.ID`, so no two write the same one. Whoever finds
// a living one beside his own steps back. A holder writes his object anew each minute. An object is
// dead if it wasn't written for ten minutes, by the clock of the remote, or if its process is gone
// from this machine.
class Remote_Lock {
 public:
  // `rclone` must outlive it.
  explicit Remote_Lock(Rclone& rclone) : rclone_(rclone) {}
  ~Remote_Lock();
  Remote_Lock(const Remote_Lock&) = delete;
  Remote_Lock& operator=(const Remote_Lock&) = delete;

  // `objects` are all of the place, as they are once the lock is held.
  bool take(const std::string& stem, std::vector<Remote_Object>& objects, std::string& error);
  void release();

  bool is_held() const { return !object_.empty(); }

  // Looks whether the object of the lock is there. Once it was found taken away it is lost: the
  // stem is another holder's, and nothing may be written or removed any more.
  bool is_kept();
  bool is_lost() const { return lost_; }

  // True if the object of the lock is among `objects`: nobody took the stem over in between.
  bool is_among(const std::vector<Remote_Object>& objects) const;

  // Removes the locks of `stem` that nobody renews; `lines` tells of each. False, with `error`, if
  // one is left.
  static bool unlock(Rclone& rclone, const std::string& stem, std::vector<std::string>& lines,
                     std::string& error);

 private:
  struct Found {
    std::string object;
    Lock_Holder holder;
    long long age = 0;  // seconds by the clock of the remote
  };

  static bool find(Rclone& rclone, const std::string& stem, const std::string& own,
                   std::vector<Remote_Object>& objects, std::vector<Found>& found,
                   std::string& error);
  static bool find_holder(Rclone& rclone, const std::string& object, std::vector<Found>& found,
                          long long age, std::string& error);
  bool write(std::string& error);
  bool step_over(const std::string& stem, std::vector<Remote_Object>& objects, std::string& error);
  void renew_until_released();

  Rclone& rclone_;
  std::string object_;  // empty while none is held
  std::string text_;
  std::thread renewer_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool released_ = false;
  std::atomic<bool> lost_{false};
};

}  // namespace agent
