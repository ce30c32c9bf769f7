#include "services/backup_reader.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <limits>

#include "platform/native_path.h"
#include "platform/utf16.h"

namespace MTF_FS {
namespace {

constexpr int error_not_enough_memory = 8;
constexpr int error_handle_eof = 38;
// A record is read in pieces, so that its memory is taken only as its bytes come.
constexpr unsigned int pre_read_step = 0x10000;

template <class Reader>
bool read_to_buffer(Reader& reader, MTF::Buffer& buffer, unsigned int size) {
  buffer.size(0);
  if (!buffer.expand(size)) return false;
  const bool done = reader.read(reinterpret_cast<unsigned char*>(buffer.data()), size);
  if (done) buffer.size(size);
  return done;
}

}  // namespace

Backup_Reader::Backup_Reader(std::unique_ptr<platform::Record_Source> source)
    : source_(std::move(source)) {
  if (source_) return;
  source_ = platform::file_records(
      [this](const std::string& name, const std::string& why) { tell_left_out(name, why); });
}

void Backup_Reader::tell_left_out(const std::string& name, const std::string& why) const {
  const std::string path = platform::display_path(path_);
  ACE_ERROR((LM_WARNING, ACE_TEXT("Extended attribute '%s' of '%s' is left out: %s\n"),
             name.empty() ? "*" : name.c_str(), path.c_str(), why.c_str()));
}

bool Backup_Reader::open(const std::wstring& path) {
  return open(platform::from_utf16(path));
}

bool Backup_Reader::open(const std::string& system_path) {
  path_ = system_path;
  out_of_memory_ = false;
  return source_->open(path_);
}

bool Backup_Reader::read(unsigned char* data, unsigned int& size) {
  const long long n = source_->read(reinterpret_cast<char*>(data), size);
  size = n > 0 ? static_cast<unsigned int>(n) : 0;
  return n >= 0;
}

bool Backup_Reader::read(MTF::Buffer& buffer, unsigned int size) {
  out_of_memory_ = !buffer.expand(size);
  return read_to_buffer(*this, buffer, size);
}

int Backup_Reader::last_error() const {
  return out_of_memory_ ? error_not_enough_memory : source_->last_error();
}

bool Pre_Backup_Reader::fail(int error) {
  record_.size(0);
  last_error_ = error;
  return false;
}

bool Pre_Backup_Reader::pre_read(Backup_Reader& reader, const _WIN32_STREAM_ID& id) {
  taken_ = 0;
  record_.size(0);
  last_error_ = 0;
  constexpr unsigned int most = std::numeric_limits<unsigned int>::max() - pre_read_step;
  if (id.Size > most || id.dwStreamNameSize > most - id.Size) return fail(error_not_enough_memory);
  const auto whole = static_cast<unsigned int>(id.Size + id.dwStreamNameSize);
  for (unsigned int held = 0; held < whole;) {
    unsigned int size = std::min(whole - held, std::max(held, pre_read_step));
    if (!record_.expand(held + size)) return fail(error_not_enough_memory);
    if (!reader.read(reinterpret_cast<unsigned char*>(record_.data()) + held, size)) {
      return fail(reader.last_error());
    }
    if (size == 0) return fail(error_handle_eof);
    held += size;
    record_.size(held);
  }
  return true;
}

bool Pre_Backup_Reader::read(unsigned char* data, unsigned int& size) {
  size = std::min(size, record_.size() - taken_);
  std::copy_n(record_.data() + taken_, size, reinterpret_cast<char*>(data));
  taken_ += size;
  return true;
}

bool Pre_Backup_Reader::read(MTF::Buffer& buffer, unsigned int size) {
  return read_to_buffer(*this, buffer, size);
}

}  // namespace MTF_FS
