#include "mtf/reader/media_check.h"

namespace MTF {
namespace {

constexpr unsigned char known_major_version = 1;
constexpr unsigned int soft_filemarks = 0x1;   // of the TAPE attributes
constexpr unsigned int set_compression = 0x2;  // of the SSET and ESET attributes
constexpr unsigned int normal_set = 0x4;       // of the ESET attributes
constexpr unsigned int volume_bit = 0x4;       // of the VOLB attributes
constexpr unsigned int tape_bits = 0x3;        // all that the TAPE attributes may have
constexpr unsigned int corrupt_bits = corrupt_length_change | corrupt_unreadable | corrupt_in_use;

// A field that is the same on every media.
struct Constant {
  unsigned int at;
  unsigned int width;
  unsigned char value;  // of its first byte, the others are zero
};

constexpr Constant tape_constants[] = {
    {62, 2, 0},  // password encryption algorithm
    {66, 2, 1},  // media based catalog type
    {76, 4, 0},  // media password
    {86, 2, 0},  // software vendor id
};
constexpr Constant sset_constants[] = {
    {56, 2, 0},  // password encryption algorithm
    {60, 2, 0},  // software vendor id
    {93, 2, 0},  // software version
};

// The position in the block of the first constant that differs, or 0.
template <std::size_t N>
unsigned int differing(const Constant (&constants)[N], const Block_View& view) {
  for (const Constant& constant : constants) {
    std::string expected(constant.width, '\0');
    expected[0] = static_cast<char>(constant.value);
    if (view.bytes.compare(constant.at, constant.width, expected) != 0) return constant.at;
  }
  return 0;
}

}  // namespace

Media_Check::Media_Check(Piece_Window& window, unsigned int seq, IMedia_Listener* listener,
                         const Fault_At& on_fault)
    : window_(window),
      seq_(seq),
      listener_(listener),
      on_fault_(on_fault),
      walker_(window, *this, on_fault),
      filemarks_(on_fault),
      streams_(on_fault) {}

void Media_Check::run() {
  walker_.walk();
  if (!gap_) streams_.end(block_position_);
  give_object(false);
  check(order_.complete(), window_.size(), "the media ends too early");
}

void Media_Check::check(bool right, unsigned long long position, const char* text) {
  if (!right) on_fault_(position, text);
}

void Media_Check::on_gap() {
  gap_ = lost_ = true;
  filemarks_.forget();
}

void Media_Check::on_block(const Media_Block& block) {
  const unsigned int type = block.view.header.type;
  ++counts_.blocks;
  std::string why;
  if (!order_.take(type, gap_, why)) on_fault_(block.position, why);
  if (!gap_) streams_.end(block_position_);
  if (type == block_cfil) check_cfil(block);
  give_object(type == block_cfil && !gap_);
  streams_.start(type,
                 (block.view.header.attributes & attr_name_in_stream) != 0 && type != block_tape);
  block_type_ = type;
  block_position_ = block.position;
  if (type != block_sfmb) check_ids(block);
  if (type == block_tape) check_tape(block);
  if (type == block_sset) check_sset(block);
  if (type == block_eset) check_eset(block);
  if (type == block_eotm) check_eotm(block);
  if (type == block_sfmb) filemarks_.take(block, walker_.geometry());
  if (block.view.layout->name != 0) hold_object(block);
  gap_ = false;
}

void Media_Check::on_stream(const Media_Stream& stream) {
  ++counts_.streams;
  streams_.take(stream);
  const unsigned int id = stream.header.id;
  if (id == stream_meta) {
    check(block_type_ == block_sset, stream.position, "META stream behind another block than SSET");
    if (listener_ != nullptr) listener_->on_metadata(stream.data_position, stream.header.length);
  }
  if (id != stream_tfdd && id != stream_tsmp) return;
  const bool detail = id == stream_tfdd;
  check(block_type_ == block_eset, stream.position,
        "catalog stream behind another block than ESET");
  check(stream.position % walker_.geometry().physical == 0, stream.position,
        "catalog stream is off the physical grid");
  (detail ? catalog_.tfdd : catalog_.tsmp) = stream.data_position;
  (detail ? catalog_.tfdd_length : catalog_.tsmp_length) = stream.header.length;
}

void Media_Check::check_tape(const Media_Block& block) {
  const Block_View& view = block.view;
  const auto at = [&](unsigned int offset) { return block.position + offset; };
  check(
      view.get<unsigned short>(tape_at::media_sequence_number) == static_cast<unsigned short>(seq_),
      at(tape_at::media_sequence_number), "the media belongs to another job");
  check(view.get<unsigned char>(tape_at::mtf_major_version) == known_major_version,
        at(tape_at::mtf_major_version), "another version of the format");
  const auto attributes = view.get<unsigned int>(tape_at::tape_attributes);
  check((attributes & soft_filemarks) != 0, at(tape_at::tape_attributes),
        "the media claims to have no soft filemarks");
  check((attributes & ~tape_bits) == 0, at(tape_at::tape_attributes),
        "TAPE block has wrong attributes");
  const unsigned int odd = differing(tape_constants, view);
  check(odd == 0, at(odd), "TAPE block has a field that no media has");
}

void Media_Check::check_sset(const Media_Block& block) {
  const Block_View& view = block.view;
  set_seen_ = true;
  set_date_ = view.date(sset_at::media_write_date);
  set_number_ = view.get<unsigned short>(sset_at::data_set_number);
  set_compressed_ = (view.get<unsigned int>(sset_at::sset_attributes) & set_compression) != 0;
  last_control_block_id_ = last_directory_id_ = last_file_id_ = 0;
  check(set_number_ == 1, block.position + sset_at::data_set_number,
        "SSET block has a wrong data set number");
  check(view.get<unsigned long long>(sset_at::physical_block_address) ==
            block.position / walker_.geometry().physical,
        block.position + sset_at::physical_block_address,
        "SSET block has a wrong physical address");
  check((view.get<unsigned short>(sset_at::compression_algorithm) != 0) == set_compressed_,
        block.position + sset_at::compression_algorithm,
        "SSET block has another compression than its attributes");
  const unsigned int odd = differing(sset_constants, view);
  check(odd == 0, block.position + odd, "SSET block has a field that no media has");
  if (listener_ == nullptr) return;
  listener_->on_set({block.position, view.header.format_logical_address,
                     view.get<signed char>(sset_at::time_zone)});
}

void Media_Check::check_ids(const Media_Block& block) {
  const unsigned int id = block.view.header.control_block_id;
  if (!block.view.layout->is_entry) {
    check(id == 0, block.position, "block outside a set has a control block id");
    return;
  }
  check(id > last_control_block_id_, block.position, "control block id doesn't rise");
  last_control_block_id_ = id;
  if (block.view.header.type == block_volb) {
    check((block.view.get<unsigned int>(volb_at::volb_attributes) & volume_bit) != 0,
          block.position, "VOLB block has wrong attributes");
    directory_known_ = false;
    return;
  }
  if (block.view.header.type == block_dirb) return check_directory(block);
  if (block.view.layout->name != 0) check_file(block);
}

// A directory that could not be saved has used up its id, so the ids have gaps.
void Media_Check::check_directory(const Media_Block& block) {
  const auto id = block.view.get<unsigned int>(dirb_at::directory_id);
  check(id > last_directory_id_, block.position + dirb_at::directory_id,
        "directory id doesn't rise");
  last_directory_id_ = id;
  directory_known_ = true;
}

void Media_Check::check_file(const Media_Block& block) {
  const auto directory = block.view.get<unsigned int>(file_at::directory_id);
  check(
      directory_known_ && !gap_ ? directory == last_directory_id_ : directory >= last_directory_id_,
      block.position + file_at::directory_id,
      "block belongs to another directory than the last one");
  last_directory_id_ = directory;
  directory_known_ = true;
  const auto file = block.view.get<unsigned int>(file_at::file_id);
  check(file > last_file_id_, block.position + file_at::file_id, "file id doesn't rise");
  last_file_id_ = file;
}

void Media_Check::check_name(const Media_Block& block) {
  const bool in_stream = (block.view.header.attributes & attr_name_in_stream) != 0;
  check(block_name(block.view).empty() == in_stream, block.position + block.view.layout->name,
        in_stream ? "block has two names" : "block has no name");
}

void Media_Check::check_cfil(const Media_Block& block) {
  const Block_View& view = block.view;
  if (gap_) return;
  ++counts_.corrupt_files;
  const bool behind_file = holding_ && object_.type == block_file;
  check(behind_file, block.position, "CFIL block behind another block than FILE");
  const auto attributes = view.get<unsigned int>(cfil_at::cfil_attributes);
  check(attributes != 0 && (attributes & ~corrupt_bits) == 0,
        block.position + cfil_at::cfil_attributes, "CFIL block has wrong attributes");
  const auto number = view.get<unsigned short>(cfil_at::stream_number);
  // The number is one more than there are streams if the next stream couldn't be begun.
  check(number >= 1 && number <= streams_.count() + 1, block.position + cfil_at::stream_number,
        "CFIL block names a stream that isn't there");
  if (number != streams_.count()) return;
  check(view.get<unsigned long long>(cfil_at::stream_offset) <= streams_.last_length(),
        block.position + cfil_at::stream_offset, "CFIL block has an offset outside its stream");
}

void Media_Check::check_eset(const Media_Block& block) {
  const Block_View& view = block.view;
  const auto at = [&](unsigned int offset) { return block.position + offset; };
  check(view.bytes.size() % walker_.geometry().physical == 0, at(8),
        "ESET block doesn't fill its physical block");
  if (set_seen_) {
    check(view.get<unsigned short>(eset_at::data_set_number) == set_number_,
          at(eset_at::data_set_number), "ESET block has another data set number than SSET");
    check(view.date(eset_at::media_write_date) == set_date_, at(eset_at::media_write_date),
          "ESET block has another date than SSET");
    const unsigned int expected = normal_set | (set_compressed_ ? set_compression : 0);
    check(view.get<unsigned int>(eset_at::eset_attributes) == expected,
          at(eset_at::eset_attributes), "ESET block has wrong attributes");
  }
  check(lost_ || view.get<unsigned int>(eset_at::corrupt_file_count) == counts_.corrupt_files,
        at(eset_at::corrupt_file_count), "ESET block counts the corrupt files wrongly");
  if (eset_copies_++ == 0) {
    eset_position_ = block.position;
    first_eset_ = view.bytes;
  } else {
    check_eset_copy(block);
  }
  check_eset_catalog(block);
}

// The copies differ in the places of the streams and in the checksum alone.
void Media_Check::check_eset_copy(const Media_Block& block) {
  if (lost_) return;
  std::string copy(block.view.bytes);
  const auto take_over = [&](std::size_t at, std::size_t size) {
    copy.replace(at, size, first_eset_, at, size);
  };
  take_over(header_checksum_offset, sizeof(unsigned short));
  take_over(eset_at::fdd_pba, 2 * sizeof(unsigned long long));
  check(copy == first_eset_, block.position, "second ESET block differs from the first one");
}

// The first copy can't know where the catalog will stand; the second one says it.
void Media_Check::check_eset_catalog(const Media_Block& block) {
  if (lost_) return;
  const auto place = [&](unsigned long long data) {
    return data == 0 ? 0 : (data - stream_header_size) / walker_.geometry().physical;
  };
  const auto on_grid = [&](unsigned long long data) {
    return data == 0 || (data - stream_header_size) % walker_.geometry().physical == 0;
  };
  const bool first = eset_copies_ == 1;
  check(first || (on_grid(catalog_.tfdd) && on_grid(catalog_.tsmp)), block.position,
        "catalog of the media is off the physical grid");
  check(block.view.get<unsigned long long>(eset_at::fdd_pba) == (first ? 0 : place(catalog_.tfdd)),
        block.position + eset_at::fdd_pba, "ESET block has a wrong address of the TFDD stream");
  check(block.view.get<unsigned long long>(eset_at::sm_pba) == (first ? 0 : place(catalog_.tsmp)),
        block.position + eset_at::sm_pba, "ESET block has a wrong address of the TSMP stream");
}

void Media_Check::check_eotm(const Media_Block& block) {
  if (eset_copies_ == 0) return;
  check(block.view.get<unsigned long long>(eotm_at::last_eset_pba) ==
            eset_position_ / walker_.geometry().physical,
        block.position + eotm_at::last_eset_pba, "EOTM block has a wrong address of ESET");
}

void Media_Check::hold_object(const Media_Block& block) {
  check_name(block);
  const Block_Header& header = block.view.header;
  object_name_ = block_name(block.view);
  object_date_ = header.type == block_volb ? std::string_view()
                                           : block.view.date(file_at::last_modification_date);
  object_ = {block.position,
             header.type,
             header.format_logical_address,
             header.displayable_size,
             header.string_type,
             {},
             {},
             {},
             false};
  holding_ = true;
}

void Media_Check::give_object(bool corrupt) {
  if (!holding_) return;
  holding_ = false;
  if (object_name_.empty()) object_name_ = streams_.name();
  object_.corrupt = corrupt;
  object_.name = object_name_;
  object_.date = object_date_;
  object_.target = streams_.target();
  if (!gap_ && !object_.target.empty()) {
    check(object_.size == object_.target.size(), object_.position,
          "block has another size than what it leads to");
  }
  if (!corrupt) count_object();
  if (listener_ != nullptr) listener_->on_object(object_);
}

void Media_Check::count_object() {
  counts_.address_sum += mixed(object_.address);
  if (object_.type == block_volb) {
    ++counts_.volumes;
  } else if (object_.type == block_dirb) {
    ++counts_.directories;
  } else {
    ++counts_.files;
    counts_.file_size += object_.size;
  }
}

}  // namespace MTF
