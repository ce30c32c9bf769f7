#include "agent/remote_lock.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/random_id.h"
#include "agent/text.h"
#include "platform/host.h"
#include "platform/process.h"
#include "services/no_throw.h"

namespace agent {
namespace {

constexpr auto renewal = std::chrono::minutes(1);
constexpr long long stale_after = 600;   // seconds without a renewal
constexpr long long silent_after = 180;  // seconds behind which unlock() doesn't wait for one

std::string lock_start(const std::string& stem) {
  return stem + ".lock.";
}

bool is_lock(const Remote_Object& object, const std::string& stem) {
  const std::string start = lock_start(stem);
  return object.name.compare(0, start.size(), start) == 0;
}

// Seconds since 1970 of "2026-11-23T14:59:21.93Z" or "...+01:00"; -1 for anything else.
long long seconds_of(const std::string& text) {
  constexpr std::size_t plain_length = 19;
  try {
    const auto time = boost::posix_time::from_iso_extended_string(text.substr(0, plain_length));
    long long seconds = (time - boost::posix_time::from_time_t(0)).total_seconds();
    const std::size_t sign = text.find_first_of("+-", plain_length);
    int hours = 0, minutes = 0;
    if (sign != std::string::npos &&
        std::sscanf(text.c_str() + sign + 1, "%2d:%2d", &hours, &minutes) == 2) {
      seconds -= (text[sign] == '-' ? -60LL : 60LL) * (60 * hours + minutes);
    }
    return seconds;
  } catch (const std::exception&) {
    return -1;
  }
}

}  // namespace

Lock_Holder Lock_Holder::own() {
  Lock_Holder holder;
  holder.host = platform::machine_name();
  holder.machine = platform::process_space();
  holder.process = platform::current_process();
  platform::process_start(holder.process, holder.started);
  return holder;
}

std::string Lock_Holder::text() const {
  const auto now = boost::posix_time::second_clock::universal_time();
  const nlohmann::json document = {{"host", host},
                                   {"machine", machine},
                                   {"process", process},
                                   {"started", started},
                                   {"time", boost::posix_time::to_iso_extended_string(now) + 'Z'}};
  return document.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) + '\n';
}

bool Lock_Holder::parse(const std::string& text, Lock_Holder& out) {
  try {
    const nlohmann::json document = nlohmann::json::parse(text);
    out.host = document.at("host").get<std::string>();
    out.machine = document.at("machine").get<std::string>();
    out.process = document.at("process").get<unsigned int>();
    out.started = document.at("started").get<unsigned long long>();
    return true;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
}

bool Lock_Holder::is_gone() const {
  if (machine.empty() || machine != platform::process_space()) return false;
  unsigned long long ticks = 0;
  return !platform::process_start(process, ticks) || ticks != started;
}

std::string Lock_Holder::title() const {
  return "host '" + escape_controls(host) + "', process " + std::to_string(process);
}

bool Remote_Lock::find(Rclone& rclone, const std::string& stem, const std::string& own,
                       std::vector<Remote_Object>& objects, std::vector<Found>& found,
                       std::string& error) {
  if (rclone.list(objects, error) != Call_End::done) return false;
  const auto mine = std::find_if(objects.begin(), objects.end(),
                                 [&](const Remote_Object& each) { return each.name == own; });
  const long long now = mine != objects.end() ? seconds_of(mine->changed) : -1;
  if (now < 0) {
    error = "the lock that was just written isn't there";
    return false;
  }
  return std::all_of(objects.begin(), objects.end(), [&](const Remote_Object& each) {
    return each.name == own || !is_lock(each, stem) ||
           find_holder(rclone, each.name, found, now - seconds_of(each.changed), error);
  });
}

// One that was given back since is none.
bool Remote_Lock::find_holder(Rclone& rclone, const std::string& object, std::vector<Found>& found,
                              long long age, std::string& error) {
  constexpr std::size_t most_text = 0x10000;
  Found one{object, {}, age};
  std::string text;
  const auto take = [&](const char* data, std::size_t size) {
    text.append(data, std::min(size, most_text - text.size()));
    return true;
  };
  const Call_End end = rclone.get_all(object, take, error);
  if (end == Call_End::missing) return true;
  if (!Lock_Holder::parse(text, one.holder)) one.holder.host = "unknown";
  found.push_back(std::move(one));
  return end == Call_End::done;
}

bool Remote_Lock::write(std::string& error) {
  return rclone_.put(object_, text_, error) == Call_End::done;
}

bool Remote_Lock::take(const std::string& stem, std::vector<Remote_Object>& objects,
                       std::string& error) {
  object_ = lock_start(stem) + random_id();
  text_ = Lock_Holder::own().text();
  lost_ = false;
  if (!write(error)) {
    release();  // some kinds of remote keep the beginning of what broke off
    return false;
  }
  released_ = false;
  renewer_ = std::thread([this] { renew_until_released(); });
  if (step_over(stem, objects, error)) return true;
  release();
  return false;
}

// Removes dead locks; false beside a living one. Whoever had one may have changed something since
// the listing.
bool Remote_Lock::step_over(const std::string& stem, std::vector<Remote_Object>& objects,
                            std::string& error) {
  std::vector<Found> found;
  if (!find(rclone_, stem, object_, objects, found, error)) return false;
  const bool was_shared = std::any_of(
      objects.begin(), objects.end(),
      [&](const Remote_Object& each) { return each.name != object_ && is_lock(each, stem); });
  for (const Found& each : found) {
    if (!each.holder.is_gone() && each.age < stale_after) {
      error = "a job of '" + stem + "' is running: " + each.holder.title() + ", last heard of " +
              duration_text(static_cast<double>(std::max(each.age, 0LL))) +
              " ago; if it is dead, see 'mtf-agent unlock'";
      return false;
    }
  }
  for (const Found& each : found) {
    if (rclone_.remove(each.object, error) == Call_End::failed) return false;
  }
  return !was_shared || rclone_.list(objects, error) == Call_End::done;
}

Remote_Lock::~Remote_Lock() {
  release();
}

void Remote_Lock::release() {
  if (object_.empty()) return;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    released_ = true;
  }
  changed_.notify_all();
  if (renewer_.joinable()) renewer_.join();
  MTF::no_throw("Remote_Lock", Call_End::failed, [&] {
    std::string error;  // what stays is found dead by the next
    return rclone_.remove(object_, error);
  });
  object_.clear();
}

void Remote_Lock::renew_until_released() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!changed_.wait_for(lock, renewal, [this] { return released_; })) {
    lock.unlock();
    MTF::no_throw("Remote_Lock", false, [&] {
      std::string error;  // the end of the job looks whether the lock is still there
      text_ = Lock_Holder::own().text();
      return is_kept() && write(error);
    });
    lock.lock();
  }
}

bool Remote_Lock::is_kept() {
  std::string text, error;
  if (!lost_ && rclone_.get(object_, 0, 1, text, error) == Call_End::missing) lost_ = true;
  return !lost_;
}

bool Remote_Lock::is_among(const std::vector<Remote_Object>& objects) const {
  return !lost_ && std::any_of(objects.begin(), objects.end(),
                               [&](const Remote_Object& each) { return each.name == object_; });
}

bool Remote_Lock::unlock(Rclone& rclone, const std::string& stem, std::vector<std::string>& lines,
                         std::string& error) {
  Remote_Lock probe(rclone);
  probe.object_ = lock_start(stem) + random_id();
  probe.text_ = Lock_Holder::own().text();
  if (!probe.write(error)) return false;
  std::vector<Remote_Object> objects;
  std::vector<Found> found;
  if (!find(rclone, stem, probe.object_, objects, found, error)) return false;
  bool done = true;
  for (const Found& each : found) {
    const bool gone = each.holder.is_gone();
    const bool here = each.holder.machine == platform::process_space();
    const std::string ago =
        ", last heard of " + duration_text(static_cast<double>(std::max(each.age, 0LL))) + " ago";
    if (!gone && (here || each.age < silent_after)) {
      error = "the lock of " + each.holder.title() + ago + " is held: " +
              (here ? "its process is alive" : "try again when it was silent for three minutes");
      done = false;
    } else if (rclone.remove(each.object, error) != Call_End::failed) {
      lines.push_back("removed the lock of " + each.holder.title() + ago);
    } else {
      done = false;
    }
  }
  return done;
}

}  // namespace agent
