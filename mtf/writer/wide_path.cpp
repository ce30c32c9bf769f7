#include "mtf/writer/wide_path.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include "mtf/common/format_words.h"
#include "oxbase/system.h"
#include "platform/utf16.h"

namespace MTF {
namespace {

constexpr std::size_t longest_plain_path = 247;

}  // namespace

void to_wide_path(const std::string& path, std::wstring& out) {
  out = platform::to_utf16(path);
  if (out.size() > longest_plain_path && out.front() != L'\\') out.insert(0, L"\\\\?\\");
}

std::string shown_path(const std::string& path) {
  std::wstring wide;
  to_wide_path(path, wide);
  return platform::from_utf16(wide);
}

bool query_attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data, int& error) {
  data = WIN32_FILE_ATTRIBUTE_DATA{};
  if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return true;
  const int system_error = errno;
  error = static_cast<int>(GetLastError());
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get file attribute, path=%s, errno=%d\n"),
             oxbase::UTF16_String(path).c_utf8(), error));
  errno = system_error;
  return false;
}

unsigned int block_attributes(unsigned int file_attributes) {
  static constexpr struct {
    unsigned int windows;
    unsigned int block;
  } map[] = {
      {FILE_ATTRIBUTE_READONLY, entry_read_only},
      {FILE_ATTRIBUTE_HIDDEN, entry_hidden},
      {FILE_ATTRIBUTE_SYSTEM, entry_system},
      {FILE_ATTRIBUTE_ARCHIVE, entry_modified},
  };
  unsigned int bits = 0;
  for (const auto& row : map) {
    if ((file_attributes & row.windows) != 0) bits |= row.block;
  }
  return bits;
}

}  // namespace MTF
