#include "tests/support/media_bytes.h"

#include <algorithm>
#include <cstring>

namespace test {
namespace {

constexpr unsigned int logical = 512;
constexpr unsigned int physical = 4096;
const std::string set_date = date(2024, 5, 6, 7, 8, 9);

std::string u16(unsigned long long value) {
  return Bytes().le(value, 2).data;
}
std::string u32(unsigned long long value) {
  return Bytes().le(value, 4).data;
}
std::string u64(unsigned long long value) {
  return Bytes().le(value, 8).data;
}
std::string address(std::size_t size, std::size_t offset) {
  return Bytes().le(size, 2).le(size == 0 ? 0 : offset, 2).data;
}

}  // namespace

unsigned int xor16(const std::string& data, std::size_t at, std::size_t size) {
  unsigned int sum = 0;
  for (std::size_t i = 0; i < size; ++i) {
    sum ^= static_cast<unsigned char>(data[at + i]) << (i % 2 == 0 ? 0 : 8);
  }
  return sum;
}

unsigned int xor32(std::string data) {
  unsigned int sum = 0;
  for (std::size_t i = 0; i < data.size(); ++i) {
    sum ^= static_cast<unsigned int>(static_cast<unsigned char>(data[i])) << 8 * (i % 4);
  }
  return sum;
}

void set_le(std::string& data, std::size_t at, unsigned long long value, int width) {
  for (int i = 0; i < width; ++i) data[at + i] = static_cast<char>(value >> (8 * i));
}

unsigned long long get_le(const std::string& data, std::size_t at, int width) {
  unsigned long long value = 0;
  for (int i = width; i-- > 0;) value = value << 8 | static_cast<unsigned char>(data[at + i]);
  return value;
}

std::string date(int year, int month, int day, int hour, int minute, int second) {
  unsigned long long bits = year;
  bits = bits * 16 + month;
  bits = bits * 32 + day;
  bits = bits * 32 + hour;
  bits = bits * 64 + minute;
  bits = bits * 64 + second;
  std::string out;
  for (int shift = 32; shift >= 0; shift -= 8) out += static_cast<char>(bits >> shift);
  return out;
}

std::string nul_separated(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '\0');
  return text;
}

void seal_block(std::string& data, std::size_t at) {
  set_le(data, at + 50, xor16(data, at, 50), 2);
}
void seal_stream(std::string& data, std::size_t at) {
  set_le(data, at + 20, xor16(data, at, 20), 2);
}
void seal_record(std::string& data, std::size_t at) {
  set_le(data, at + 62, xor16(data, at, 62), 2);
}

void Media_Bytes::align() {
  data.resize((data.size() + 3) / 4 * 4);
}

void Media_Bytes::pad(unsigned int grid) {
  align();
  std::size_t n = (data.size() + grid - 1) / grid * grid - data.size();
  if (n < 22) n += grid;
  stream("SPAD", std::string(n - 22, '\0'), 0, 0, false);
}

void Media_Bytes::block(const std::string& type, const std::string& fields,
                        const std::string& strings, unsigned int attributes,
                        unsigned int control_block_id, unsigned long long size, std::size_t whole) {
  block_at = data.size();
  places.emplace_back(type, block_at);
  const std::size_t used = 52 + fields.size() + strings.size();
  const std::size_t length = whole != 0 ? whole : (used + 3) / 4 * 4;
  const unsigned long long unit = type == "SFMB" ? physical : logical;
  Bytes header;
  header.raw(type).le(attributes, 4).le(length, 2).le(14, 1).le(0, 1).le(size, 8);
  header.le(block_at / unit, 8).zeros(8).le(control_block_id, 4).zeros(8).le(1, 1).le(0, 1);
  data += header.data + std::string(2, '\0') + fields + strings;
  data.resize(block_at + length);
  seal_block(data, block_at);
}

void Media_Bytes::filemark() {
  std::string array;
  for (auto it = filemarks_.rbegin(); it != filemarks_.rend(); ++it) array += u32(*it);
  const unsigned int here = static_cast<unsigned int>(data.size() / physical);
  block("SFMB", u32((physical - 60) / 4) + u32(filemarks_.size()) + array, "", 0,
        static_cast<unsigned int>(filemarks_.size() + 1), 0, physical);
  filemarks_.push_back(here);
}

void Media_Bytes::begin(const std::string& metadata) {
  metadata_text = metadata;
  block("TAPE",
        u32(77) + u32(1) + u16(seq_) + u16(0) + u16(physical) + u16(1) + std::string(16, '\0') +
            u16(logical) + u16(0) + set_date + "\x01",
        "", 0x30000, 0, 0);
  pad(physical);
  filemark();
  sset_at_ = data.size();
  block("SSET",
        u32(4) + u16(0) + u16(0) + u16(0) + u16(1) + std::string(16, '\0') +
            u64(sset_at_ / physical) + set_date + std::string("\0\0\0\1\2", 5),
        "", 0x10000, 0, 0);
  stream("META", metadata, 0, 0, false);
}

void Media_Bytes::eset(unsigned long long fdd_pba, unsigned long long sm_pba) {
  block("ESET", u32(4) + u32(corrupt_) + u64(fdd_pba) + u64(sm_pba) + u16(0) + u16(1) + set_date,
        "", 0, 0, 0, physical);
  // A copy keeps the address of the first one.
  set_le(data, block_at + 20, eset_at_ / logical, 8);
  seal_block(data, block_at);
}

void Media_Bytes::end() {
  pad(physical);
  filemark();
  eset_at_ = data.size();
  eset(0, 0);
  if (with_catalog) media_catalog();
  pad(physical);
  filemark();
  block("EOTM", u64(eset_at_ / physical), "", 0, 0, 0);
  pad(physical);
  filemark();
}

void Media_Bytes::note(const std::string& type, const std::string& name,
                       const std::string& modified, unsigned long long size) {
  entries.push_back({type, seq_, block_at / logical, size, (size + 4095) / 4096 * 4096, sset_at_,
                     sset_at_ / logical, modified, name});
}

void Media_Bytes::named(const std::string& type, const std::string& name, const std::string& fields,
                        unsigned int fixed, unsigned int attributes, unsigned long long size) {
  pad(logical);
  block(type, fields + address(name.size(), fixed), name, attributes, ++control_block_id_, size);
}

void Media_Bytes::volb(const std::string& device) {
  const std::string machine = "host";
  pad(logical);
  block("VOLB",
        u32(4) + address(device.size(), 73) + u32(0) + address(machine.size(), 73 + device.size()) +
            set_date,
        device + machine, 0, ++control_block_id_, 0);
  note("VOLB", device, "", 0);
  entries.back().space = 0;
}

void Media_Bytes::dirb(const std::string& name, const std::string& modified) {
  const std::string stored = nul_separated(name);
  named("DIRB", stored, u32(0) + modified + set_date + set_date + set_date + u32(++directory_id_),
        84, 0, 0);
  note("DIRB", stored, modified, 0);
}

void Media_Bytes::dirb_with_pnam(const std::string& name, const std::string& modified) {
  const std::string stored = nul_separated(name);
  named("DIRB", "", u32(0) + modified + set_date + set_date + set_date + u32(++directory_id_), 84,
        0x20000, 0);
  note("DIRB", stored, modified, 0);
  stream("PNAM", stored, 0, 0, false);
}

void Media_Bytes::file(const std::string& name, unsigned long long size,
                       const std::string& modified) {
  named(
      "FILE", name,
      u32(0x800) + modified + set_date + set_date + set_date + u32(directory_id_) + u32(++file_id_),
      88, 0, size);
  note("FILE", name, modified, size);
}

void Media_Bytes::file_with_fnam(const std::string& name, unsigned long long size,
                                 const std::string& modified) {
  named(
      "FILE", "",
      u32(0x800) + modified + set_date + set_date + set_date + u32(directory_id_) + u32(++file_id_),
      88, 0x20000, size);
  note("FILE", name, modified, size);
  stream("FNAM", name, 0, 0, false);
}

void Media_Bytes::pdat(const std::string& name) {
  const std::string none(5, '\0');
  named("PDAT", name, u32(0) + none + none + set_date + none + u32(directory_id_) + u32(++file_id_),
        88, 0, 0);
  // The catalog's date is read and written again.
  note("PDAT", name, date(1970, 1, 1), 0);
}

void Media_Bytes::cfil(unsigned int attributes, unsigned long long offset,
                       unsigned int stream_number) {
  entries.pop_back();
  ++corrupt_;
  pad(logical);
  block("CFIL", u32(attributes) + u64(0) + u64(offset) + u16(stream_number), "", 0,
        ++control_block_id_, 0);
}

void Media_Bytes::stream(const std::string& id, const std::string& content,
                         unsigned int file_attributes, unsigned int media_attributes,
                         bool checksum) {
  align();
  const bool summed = checksum && !content.empty();
  stream_at = data.size();
  data += Bytes()
              .raw(id)
              .le(file_attributes, 2)
              .le(media_attributes | (summed ? 0x20 : 0), 2)
              .le(content.size(), 8)
              .zeros(6)
              .data;
  seal_stream(data, stream_at);
  data_at = data.size();
  places.emplace_back(id, data_at);
  data += content;
  const std::size_t header = stream_at;
  const std::size_t start = data_at;
  if (summed || (media_attributes & 4) != 0) {
    stream("CSUM", u32(xor32(content)), 0, 0, false);
  }
  stream_at = header;
  data_at = start;
}

void Media_Bytes::spar(unsigned long long offset, const std::string& content) {
  stream("SPAR", u64(offset) + content);
}

void Media_Bytes::frames(const std::string& id, const std::vector<Frame>& list, unsigned int method,
                         unsigned long long length) {
  constexpr unsigned int attributes = 0x30;
  align();
  stream_at = data.size();
  data +=
      Bytes().raw(id).le(0, 2).le(attributes, 2).le(length, 8).le(0, 2).le(method, 2).zeros(2).data;
  seal_stream(data, stream_at);
  data_at = data.size();
  unsigned int count = 0;
  for (const Frame& frame : list) {
    count = (count + 1) % 256;
    Bytes header;
    header.raw("FH").le(attributes, 2).le(length, 8).le(frame.data.size(), 4);
    header.le(frame.stored.size(), 4).le(count % 255, 1).le(0, 1);
    header.le(xor16(header.data, 0, 22), 2);
    data += header.data + frame.stored;
    length -= frame.data.size();
  }
  const std::size_t at = stream_at;
  const std::size_t start = data_at;
  stream("CSUM", u32(xor32(data.substr(start))), 0, 0, false);
  stream_at = at;
  data_at = start;
}

void Media_Bytes::ctex(unsigned int mode, unsigned int uid, unsigned int gid,
                       const std::string& owner, const std::string& group) {
  Bytes record;
  record.le(gid, 8).le(uid, 8).le(mode, 8).zeros(56);
  record.raw(address(owner.size(), 88)).raw(address(group.size(), 88 + owner.size()));
  record.raw(owner).raw(group);
  stream("CTEX", record.data, 0, 0, false);
}

void Media_Bytes::media_catalog() {
  std::string detail;
  std::string volumes;
  unsigned long long size = 0;
  std::size_t directories = 0;
  std::size_t files = 0;
  for (const Catalog_Entry& entry : entries) {
    const std::size_t at = entry.address * logical;
    const bool volume = entry.type == "VOLB";
    const std::size_t fixed = volume ? 61 : 68;
    // The machine's name stands behind that of the device.
    const std::string strings = volume ? entry.name + "host" : entry.name;
    Bytes record;
    record.le(fixed + strings.size(), 2).raw(entry.type).le(seq_, 2).le(get_le(data, at + 4, 4), 4);
    record.le(entry.address, 8).le(entry.size, 8).le(0, 4).le(14, 1).le(0, 1).le(1, 1).le(0, 1);
    if (volume) {
      record.raw(data.substr(at + 52, 4)).raw(address(entry.name.size(), 61)).zeros(4);
      record.raw(address(4, 61 + entry.name.size())).zeros(4).raw(data.substr(at + 68, 5));
      volumes += record.data + strings;
    } else {
      record.raw(data.substr(at + 56, 20)).raw(data.substr(at + 52, 4));
      record.raw(address(entry.name.size(), 68)).zeros(4);
      entry.type == "DIRB" ? ++directories : ++files;
      if (entry.type != "DIRB") size += entry.size;
    }
    detail += record.data + strings;
  }
  const std::size_t end = 22 + detail.size();
  const std::size_t fill = (end + physical - 1) / physical * physical - end;
  detail += Bytes().le(36 + fill, 2).raw("FEND").zeros(30).data;
  const unsigned long long fdd_pba = data.size() / physical;
  stream("TFDD", detail, 0, 0, false);
  data.resize((data.size() + physical - 1) / physical * physical);
  const unsigned long long sm_pba = data.size() / physical;
  const std::string sset = data.substr(sset_at_, 98);
  Bytes map;
  map.le(77, 4).le(1, 2).le(0, 2);
  map.le(91, 2).le(seq_, 2).raw(sset.substr(4, 4)).raw(sset.substr(52, 4));
  map.le(sset_at_ / physical, 8).le(fdd_pba, 8).le(0, 2).le(1, 2).le(sset_at_ / logical, 8);
  map.le(directories, 4).le(files, 4).le(0, 4).le(size, 8);
  map.le(volumes.empty() ? 0 : 1, 2).le(0, 2).zeros(16).raw(set_date).le(0, 1);
  map.le(14, 1).le(0, 1).le(1, 1).le(1, 1).le(2, 1).raw(volumes);
  stream("TSMP", map.data, 0, 0, false);
  pad(physical);
  eset(fdd_pba, sm_pba);
}

std::string Media_Bytes::catalog_of(const std::vector<Catalog_Entry>& entries,
                                    const std::string& metadata, unsigned int seq) {
  std::string out(96, '\0');
  out += Bytes().raw("META").zeros(4).le(metadata.size(), 8).zeros(6).data;
  seal_stream(out, 96);
  out += metadata;
  unsigned long long total[8] = {};  // in the order of the summary
  for (const Catalog_Entry& entry : entries) {
    const std::size_t at = out.size();
    const bool volume = entry.type == "VOLB";
    const std::size_t fixed = volume ? 68 : 73;
    Bytes record;
    record.le(fixed + entry.name.size(), 2).raw(entry.type).le(entry.seq, 2);
    record.le(entry.address, 8).le(entry.size, 8).le(entry.sset_off, 8).le(entry.sset_fla, 8);
    record.zeros(8).le(entry.space, 8).zeros(4).le(1, 1).zeros(3);
    if (!volume) record.raw(entry.date);
    record.raw(address(entry.name.size(), fixed)).raw(entry.name);
    out += record.data;
    seal_record(out, at);
    const bool current = entry.seq == seq;
    const bool file = entry.type != "VOLB" && entry.type != "DIRB" && entry.type != "PDAT";
    if (entry.type != "HLNK") total[0] += entry.space;
    if (entry.type != "HLNK" && current) total[1] += entry.space;
    total[2] += entry.type == "VOLB";
    total[3] += entry.type == "DIRB";
    total[4] += file;
    total[5] += file && entry.space > 524287999;
    total[6] += file && entry.space < 102401;
    total[7] += file && current;
  }
  const std::size_t last = out.size();
  out += Bytes().le(64, 2).raw("FEND").zeros(58).data;
  seal_record(out, last);
  set_le(out, 2, 1, 4);
  const std::size_t places[8] = {6, 14, 30, 38, 46, 54, 62, 70};
  for (int i = 0; i < 8; ++i) set_le(out, places[i], total[i], 8);
  set_le(out, 94, xor16(out, 0, 94), 2);
  return out;
}

namespace {

class Memory_Reader : public MTF::IRandom_Reader {
 public:
  Memory_Reader(const std::string& data, const Memory_Store* bad) : data_(data), bad_(bad) {}
  unsigned long long size() const override { return data_.size(); }
  long long read_at(unsigned long long offset, char* data, unsigned long long size) override {
    if (offset >= data_.size()) return 0;
    if (bad_ != nullptr && offset < bad_->bad_to && offset + size > bad_->bad_from) {
      return bad_->bad_result;
    }
    const auto n = std::min<unsigned long long>(size, data_.size() - offset);
    std::memcpy(data, data_.data() + offset, n);
    return static_cast<long long>(n);
  }

 private:
  const std::string& data_;
  const Memory_Store* bad_;
};

}  // namespace

bool Memory_Store::pieces(std::vector<std::string>& names, std::string&) {
  for (const auto& [name, data] : held) names.push_back(name);
  return true;
}

std::unique_ptr<MTF::IRandom_Reader> Memory_Store::open(const std::string& name,
                                                        std::string& error) {
  const auto it = held.find(name);
  if (it == held.end()) {
    error = "no such piece";
    return nullptr;
  }
  const bool media = name.find(".mtf") != std::string::npos;
  return std::make_unique<Memory_Reader>(it->second, media ? this : nullptr);
}

}  // namespace test
