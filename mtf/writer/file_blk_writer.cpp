#include "mtf/writer/file_blk_writer.h"

#include <ace/ACE.h>
#include <ace/Log_Msg.h>

#include <algorithm>
#include <cerrno>

#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/file_shaped.h"
#include "mtf/writer/imbc_writer.h"
#include "mtf/writer/nt_stream.h"
#include "services/json_spirit.h"

namespace MTF {
namespace {

constexpr std::size_t usual_name_size = 260;
constexpr unsigned int data_buffer_size = 0x10000;

}  // namespace

File_Blk_Writer::File_Blk_Writer(Ref_Ptr<Event_Handler> evt_handler)
    : path_('\\', false), block_buffer_(8), data_buffer_(8), evt_handler_(evt_handler) {
  file_name_.reserve(usual_name_size);
  data_buffer_.expand(data_buffer_size);
}

bool File_Blk_Writer::make_buffers() {
  return block_buffer_.expand(DBLK::image_size) && data_buffer_.expand(data_buffer_size);
}

bool File_Blk_Writer::reset(char* buf, unsigned int size) {
  file_space_ = 0;
  corrupt_offset_ = 0;
  corrupt_attributes_ = 0;
  stream_count_ = 0;
  cat_blk_.set_buffer(buf, size, false);
  const unsigned int type = cat_blk_.hdr().type();
  if (type != block_file) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Invalid cat type in File_Blk_Writer, %x\n"), type),
                     false);
  }
  if (!block_name(cat_blk_, file_name_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Empty file name\n")), false);
  }
  set_entry_path(*ctx_, file_name_, path_);
  return true;
}

int File_Blk_Writer::write(IWriter& writer) {
  if (ACE::debug()) ACE_DEBUG((LM_DEBUG, ACE_TEXT("Backup file '%s'\n"), path_.str().c_str()));
  // The data of a file of another job stands on that job's media.
  if (cat_blk_.hdr().seq() != ctx_->seq) return add_earlier_file();
  if (!write_spad_stream(*opt_, *ctx_, buf_, writer, true)) return -1;
  File_Blk blk(block_buffer_, true);
  // Behind the block of another directory the file would be restored into that one.
  if (ctx_->dir_missing) errno = ctx_->dir_error;
  if (ctx_->dir_missing || !set_file_blk(blk)) {
    report_skip("Failed to stat file");
    return 1;
  }
  const int opened = open_file();
  if (opened != 0) {
    if (opened == 1) report_skip("Failed to open file");
    return opened;
  }
  return write_block_and_content(blk, writer);
}

// Nothing looks at a file that didn't change, so only its directory can tell that it is gone. Its
// entry would count as one of the directory before.
int File_Blk_Writer::add_earlier_file() {
  if (ctx_->dir_missing) {
    errno = ctx_->dir_error;
    report_skip("Failed to stat file");
    return 1;
  }
  if (!catalog_->add_cat_file_blk(cat_blk_)) return -1;
  note_first_name();
  return 1;
}

// From here on further names may point here.
void File_Blk_Writer::note_first_name() {
  const Cat_Hdr& hdr = cat_blk_.hdr();
  if (!opt_->save_links || (hdr.flags() & cat_first_link) == 0) return;
  ctx_->hardlink_map->note_saved(hdr.ino(), path_.str());
}

int File_Blk_Writer::write_block_and_content(File_Blk& blk, IWriter& writer) {
  if (!write_file_blk(blk, writer) ||
      !write_file_name(*ctx_, buf_, blk, file_name_, stream_count_, writer)) {
    ctx_->write_failed(writer);
    return -1;
  }
  const int result = write_content(blk, writer);
  if (result == -1) return -1;
  if (!writer.flush()) {
    ctx_->write_failed(writer);
    return -1;
  }
  if (result == content_corrupt) return end_corrupt(writer);
  if (result == content_unknown) {
    ACE_ERROR_RETURN(
        (LM_WARNING, ACE_TEXT("Failed to write file content, '%s' encounter unknown NT stream\n"),
         path_.str().c_str()),
        1);
  }
  return add_to_catalogs(blk);
}

bool File_Blk_Writer::set_file_blk(File_Blk& blk) {
  set_file_shape(*opt_, *ctx_, file_name_, blk);
  return true;
}

bool File_Blk_Writer::write_file_blk(File_Blk& blk, IWriter& writer) {
  return write_shaped_blk(*ctx_, blk, writer);
}

int File_Blk_Writer::write_data_stream(Standard_Data_Stream& stream, unsigned long long size,
                                       const Read& read, IWriter& writer) {
  if (!write_to_stream_align(*ctx_, writer)) return -1;
  stream.reset_stream(size, opt_->compression_method, opt_->compression_level);
  if (!stream.write_hdr(writer) || !copy_data(stream, size, read, writer)) return -1;
  if (stream.current_size() != stream.stream_length()) return close_out(stream, writer);
  if (!stream.end_stream(writer)) return -1;
  ctx_->add_length(stream.written_size());
  ++stream_count_;
  return 0;
}

bool File_Blk_Writer::copy_data(Standard_Data_Stream& stream, unsigned long long size,
                                const Read& read, IWriter& writer) {
  while (stream.current_size() < size) {
    if (!read()) return false;
    if (data_buffer_.size() == 0) break;
    const unsigned long long wanted = size - stream.current_size();
    data_buffer_.size(
        static_cast<unsigned int>(std::min<unsigned long long>(data_buffer_.size(), wanted)));
    if (!stream.write_data(data_buffer_, writer)) return false;
  }
  return true;
}

int File_Blk_Writer::close_out(Standard_Data_Stream& stream, IWriter& writer) {
  corrupt_offset_ = stream.current_size();
  if (corrupt_attributes_ == 0) corrupt_attributes_ = corrupt_length_change;
  return fill_stream(*ctx_, stream, data_buffer_, writer) ? content_corrupt : -1;
}

bool File_Blk_Writer::write_checksum_stream(unsigned int checksum, IWriter& writer) {
  if (!write_csum_stream(*ctx_, buf_, checksum, writer)) return false;
  ++stream_count_;
  return true;
}

void File_Blk_Writer::report_skip(const char* message) {
  report_skipped_file(evt_handler_.get(), path_.str(), message);
}

int File_Blk_Writer::end_corrupt(IWriter& writer) {
  const std::string reason = corrupt_attr(corrupt_attributes_);
  ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to write file content, '%s' is corrupt, reason=%s\n"),
             path_.str().c_str(), reason.c_str()));
  ++ctx_->corrupt_file_count;
  if (evt_handler_.get() != nullptr) {
    evt_handler_->handle_event(
        event_corrupt,
        json_spirit::Document{{"type", "file"}, {"name", path_.str()}, {"message", reason}});
  }
  const auto stream_number = static_cast<unsigned short>(stream_count_ + 1);
  return write_cfil_blk(*opt_, *ctx_, buf_, corrupt_attributes_, corrupt_offset_, stream_number,
                        writer)
             ? 1
             : -1;
}

int File_Blk_Writer::add_to_catalogs(const File_Blk& blk) {
  if (mbc_writer_->add_file_blk(blk, file_name_) &&
      catalog_->add_file_blk(blk, file_space_, cat_blk_.hdr().ino(), cat_blk_.hdr().flags(),
                             file_name_)) {
    note_first_name();
    return 0;
  }
  ctx_->catalog_failed();
  return -1;
}

}  // namespace MTF
