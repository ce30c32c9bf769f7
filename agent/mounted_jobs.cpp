#include "agent/mounted_jobs.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <set>

#include "agent/job_choice.h"
#include "agent/text.h"
#include "mtf/reader/job_time.h"

namespace agent {
namespace {

constexpr std::chrono::seconds look_interval{5};
constexpr unsigned long long most_view_memory = 0x10000000;
constexpr const char* latest_name = "latest";
constexpr unsigned long long latest_key = 2;
constexpr unsigned long long first_job_key = 0x10000;  // and the number of the job
constexpr unsigned long long first_date_key = 0x20000;

// "2026-11-23T09-15", with seconds if they are asked for; empty for a time that has no date.
std::string date_name(long long time, bool seconds) {
  const std::time_t value = time;
  std::tm parts;
  char text[40];
  if (time == 0 || gmtime_r(&value, &parts) == nullptr) return {};
  const char* form = seconds ? "%Y-%m-%dT%H-%M-%S" : "%Y-%m-%dT%H-%M";
  return std::strftime(text, sizeof text, form, &parts) != 0 ? text : "";
}

// The name of the link to a job. The first job of a minute keeps its name whatever comes later.
std::string link_name(long long time, unsigned int seq, std::set<std::string>& taken) {
  std::string name = date_name(time, false);
  if (name.empty()) return {};
  if (!taken.insert(name).second) {
    name = date_name(time, true);
    if (!taken.insert(name).second) name += '.' + std::to_string(seq);
  }
  return name;
}

}  // namespace

unsigned long long job_key(unsigned int seq) {
  return first_job_key + seq;
}

bool Mounted_Jobs::Locked_Store::pieces(std::vector<std::string>& names, std::string& error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return store_.pieces(names, error);
}

std::unique_ptr<MTF::IRandom_Reader> Mounted_Jobs::Locked_Store::open(const std::string& name,
                                                                      std::string& error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return store_.open(name, error);
}

bool Mounted_Jobs::look(std::string& error) {
  std::vector<MTF::Job_Pieces> found;
  if (!MTF::find_jobs(store_, stem_, found, error)) return false;
  std::map<unsigned int, Shown_Job> jobs;
  for (MTF::Job_Pieces& pieces : found) {
    if (!pieces.complete) continue;
    long long time = time_of(pieces.seq);
    if (time == 0 && !MTF::job_time(store_, pieces, time)) time = 0;
    const unsigned int seq = pieces.seq;
    jobs[seq] = {std::move(pieces), time};
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  jobs_.swap(jobs);
  looked_ = std::chrono::steady_clock::now();
  return true;
}

// If the storage can't be listed now, the jobs stay as they were.
void Mounted_Jobs::look_again() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (now - looked_ < look_interval) return;
    looked_ = now;
  }
  std::string error;
  if (!look(error)) console_.note("warning: " + escape_controls(error));
}

std::vector<Root_Entry> Mounted_Jobs::entries() const {
  std::vector<Root_Entry> out;
  std::set<std::string> taken;
  for (const auto& [seq, job] : jobs_) {
    out.push_back({std::to_string(seq), seq, false, job_key(seq)});
    const std::string date = link_name(job.time, seq, taken);
    if (!date.empty()) out.push_back({date, seq, true, first_date_key + seq});
  }
  if (!jobs_.empty()) out.push_back({latest_name, jobs_.rbegin()->first, true, latest_key});
  return out;
}

std::vector<Root_Entry> Mounted_Jobs::root() {
  look_again();
  const std::lock_guard<std::mutex> lock(mutex_);
  return entries();
}

bool Mounted_Jobs::find(const std::string& name, Root_Entry& out) {
  for (Root_Entry& entry : root()) {
    if (entry.name != name) continue;
    out = std::move(entry);
    return true;
  }
  return false;
}

bool Mounted_Jobs::find(unsigned long long key, Root_Entry& out) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (Root_Entry& entry : entries()) {
    if (entry.key != key) continue;
    out = std::move(entry);
    return true;
  }
  return false;
}

std::size_t Mounted_Jobs::count() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return jobs_.size();
}

unsigned int Mounted_Jobs::newest() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return jobs_.empty() ? 0 : jobs_.rbegin()->first;
}

long long Mounted_Jobs::time_of(unsigned int seq) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto job = jobs_.find(seq);
  return job == jobs_.end() ? 0 : job->second.time;
}

std::shared_ptr<MTF::Job_View> Mounted_Jobs::view(unsigned int seq, std::string& why) {
  MTF::Job_Pieces pieces;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto job = jobs_.find(seq);
    if (job == jobs_.end()) return why = "the job is gone", nullptr;
    pieces = job->second.pieces;
  }
  const std::lock_guard<std::mutex> lock(opening_);
  for (auto each = views_.begin(); each != views_.end(); ++each) {
    if (each->seq != seq) continue;
    views_.splice(views_.begin(), views_, each);
    return each->view;
  }
  views_.push_front({seq, open(seq, pieces)});
  unsigned long long memory = 0;
  for (auto each = views_.begin(); each != views_.end();) {
    memory += each->view->tree().memory();
    const bool stays = each == views_.begin() || memory <= most_view_memory;
    each = stays ? std::next(each) : views_.erase(each);
  }
  return views_.front().view;
}

std::shared_ptr<MTF::Job_View> Mounted_Jobs::open(unsigned int seq, const MTF::Job_Pieces& pieces) {
  const auto on_fault = [this](const MTF::Fault& fault) {
    console_.note("error: " + fault_text(fault));
  };
  const auto on_problem = [this, seq](const std::string& path, const std::string& why) {
    console_.note("not shown in job " + std::to_string(seq) + ": " + escape_name(path) + ": " +
                  escape_controls(why));
  };
  return MTF::Job_View::open(store_, pieces, on_fault, on_problem);
}

}  // namespace agent
