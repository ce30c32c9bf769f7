// A call over HTTP to a server of this machine.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/piece_file.h"

namespace agent {

enum class Http_End { answered, broken, timed_out, canceled, not_taken };

// One call, by one thread.
class Http_Call {
 public:
  // Takes a part of an answer; false ends the call.
  using Take = std::function<bool(const char* data, std::size_t size)>;

  // `login` is "USER:PASSWORD".
  Http_Call(const std::string& url, const std::string& login);
  ~Http_Call();
  Http_Call(const Http_Call&) = delete;
  Http_Call& operator=(const Http_Call&) = delete;

  // What is sent, one of them; without any the call asks for what is at the address. `text` and
  // `file` must outlive the call.
  void send_json(const std::string& document);
  void send_text(const std::string& name, const std::string& text);
  void send_file(const std::string& name, platform::Piece_File& file);

  // True where a text or a file is sent.
  bool is_upload() const { return is_upload_; }

  // Asks for `count` bytes from `offset`, and not for all.
  void ask_for(unsigned long long offset, unsigned long long count);

  // Makes the call. What comes goes to `take` if it went well, and is kept as the answer otherwise.
  // It is ended when nothing moves for `patience` seconds, and when `canceled`, which may be null,
  // becomes true. Where `take` or the file to send refused, their errno is left.
  Http_End run(int patience, const std::atomic<bool>* canceled, const Take& take);

  // Of what was answered: 2xx if it went well, and the one for a part where a part was asked for.
  int status() const;
  bool is_done() const { return is_ranged_ ? status() == 206 : status() / 100 == 2; }
  const std::string& answer() const { return answer_; }

  // The longest time in which nothing moved.
  std::chrono::steady_clock::duration longest_idle() const { return longest_idle_; }

 private:
  using Clock = std::chrono::steady_clock;
  struct Handles;

  bool take(const char* data, std::size_t size);
  long long give(char* data, std::size_t size);
  bool goes_on(long long moved);

  const std::unique_ptr<Handles> handles_;
  bool is_upload_ = false;
  bool is_ranged_ = false;
  platform::Piece_File* source_ = nullptr;
  unsigned long long source_offset_ = 0;
  const Take* taker_ = nullptr;
  const std::atomic<bool>* canceled_ = nullptr;
  std::chrono::seconds patience_{0};
  std::string answer_;
  long long moved_ = 0;
  Clock::time_point moved_at_;
  Clock::duration longest_idle_{0};
  Http_End stopped_ = Http_End::broken;  // what a call that was stopped here ends with
  int fault_ = 0;
};

// `text` as a part of an address.
std::string url_text(const std::string& text);

}  // namespace agent
