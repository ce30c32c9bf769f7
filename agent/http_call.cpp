#include "agent/http_call.h"

#include <curl/curl.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "services/no_throw.h"

namespace agent {
namespace {

constexpr std::size_t most_answer = 0x10000;  // bytes kept of an answer that tells of a failure

// The library is set up once; the first call does it, whichever thread makes it.
CURL* new_handle() {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  CURL* const handle = ready == CURLE_OK ? curl_easy_init() : nullptr;
  if (handle == nullptr) throw std::bad_alloc();
  return handle;
}

}  // namespace

struct Http_Call::Handles {
  Handles() : easy(new_handle()) {}
  ~Handles() {
    curl_easy_cleanup(easy);
    curl_mime_free(form);
    curl_slist_free_all(headers);
  }
  Handles(const Handles&) = delete;
  Handles& operator=(const Handles&) = delete;

  // Without the question whether the server wants what is sent.
  void set_headers(const char* type) {
    headers = curl_slist_append(headers, "Expect:");
    if (type != nullptr) headers = curl_slist_append(headers, type);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  }

  curl_mimepart* add_file(const std::string& name) {
    form = curl_mime_init(easy);
    curl_mimepart* const part = curl_mime_addpart(form);
    curl_mime_name(part, "file");
    curl_mime_filename(part, name.c_str());
    curl_easy_setopt(easy, CURLOPT_MIMEPOST, form);
    set_headers(nullptr);
    return part;
  }

  static std::size_t on_data(char* data, std::size_t size, std::size_t count, void* call) {
    const std::size_t bytes = size * count;
    return static_cast<Http_Call*>(call)->take(data, bytes) ? bytes : 0;
  }

  static std::size_t on_source(char* data, std::size_t size, std::size_t count, void* call) {
    const long long got = static_cast<Http_Call*>(call)->give(data, size * count);
    return got < 0 ? CURL_READFUNC_ABORT : static_cast<std::size_t>(got);
  }

  static int on_progress(void* call, curl_off_t, curl_off_t down, curl_off_t, curl_off_t up) {
    return static_cast<Http_Call*>(call)->goes_on(down + up) ? 0 : 1;
  }

  CURL* const easy;
  curl_mime* form = nullptr;
  curl_slist* headers = nullptr;
};

Http_Call::Http_Call(const std::string& url, const std::string& login)
    : handles_(std::make_unique<Handles>()) {
  CURL* const easy = handles_->easy;
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_USERPWD, login.c_str());
  curl_easy_setopt(easy, CURLOPT_PROXY, "");
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Handles::on_data);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Handles::on_progress);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
}

Http_Call::~Http_Call() = default;

void Http_Call::send_json(const std::string& document) {
  curl_easy_setopt(handles_->easy, CURLOPT_COPYPOSTFIELDS, document.c_str());
  handles_->set_headers("Content-Type: application/json");
}

void Http_Call::send_text(const std::string& name, const std::string& text) {
  is_upload_ = true;
  curl_mime_data(handles_->add_file(name), text.data(), text.size());
}

void Http_Call::send_file(const std::string& name, platform::Piece_File& file) {
  is_upload_ = true;
  source_ = &file;
  curl_mime_data_cb(handles_->add_file(name), file.size(), &Handles::on_source, nullptr, nullptr,
                    this);
}

void Http_Call::ask_for(unsigned long long offset, unsigned long long count) {
  is_ranged_ = true;
  const std::string range = std::to_string(offset) + '-' + std::to_string(offset + count - 1);
  curl_easy_setopt(handles_->easy, CURLOPT_RANGE, range.c_str());
}

Http_End Http_Call::run(int patience, const std::atomic<bool>* canceled, const Take& take) {
  taker_ = &take;
  canceled_ = canceled;
  patience_ = std::chrono::seconds(patience);
  moved_at_ = Clock::now();
  const CURLcode code = curl_easy_perform(handles_->easy);
  errno = fault_;
  if (code == CURLE_OK) return Http_End::answered;
  return stopped_;
}

int Http_Call::status() const {
  long status = 0;
  curl_easy_getinfo(handles_->easy, CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int>(status);
}

bool Http_Call::take(const char* data, std::size_t size) {
  const bool taken = MTF::no_throw("Http_Call", false, [&] {
    if (is_done()) return (*taker_)(data, size);
    answer_.append(data, std::min(size, most_answer - answer_.size()));
    return true;
  });
  if (taken) return true;
  fault_ = errno;
  stopped_ = Http_End::not_taken;
  return false;
}

long long Http_Call::give(char* data, std::size_t size) {
  const long long count = source_->read_at(source_offset_, data, size);
  if (count < 0) {
    fault_ = errno;
    stopped_ = Http_End::not_taken;
    return count;
  }
  source_offset_ += static_cast<unsigned long long>(count);
  return count;
}

bool Http_Call::goes_on(long long moved) {
  const Clock::time_point now = Clock::now();
  longest_idle_ = std::max(longest_idle_, now - moved_at_);
  if (moved != moved_) {
    moved_ = moved;
    moved_at_ = now;
  }
  if (canceled_ != nullptr && *canceled_) {
    stopped_ = Http_End::canceled;
  } else if (now - moved_at_ > patience_) {
    stopped_ = Http_End::timed_out;
  } else {
    return true;
  }
  return false;
}

std::string url_text(const std::string& text) {
  const std::unique_ptr<char, decltype(&curl_free)> escaped(
      curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), &curl_free);
  if (escaped == nullptr) throw std::bad_alloc();
  return escaped.get();
}

}  // namespace agent
