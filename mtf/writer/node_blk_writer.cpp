#include "mtf/writer/node_blk_writer.h"

#include <ace/ACE.h>
#include <ace/Log_Msg.h>

#include <cerrno>
#include <cstring>

#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/file_shaped.h"
#include "mtf/writer/imbc_writer.h"
#include "mtf/writer/queue_blocks.h"
#include "platform/reparse_data.h"
#include "platform/utf16.h"
#include "services/bytes.h"

namespace MTF {
namespace {

std::string utf16_bytes(const std::string& path) {
  const std::wstring units = platform::to_utf16(path);
  std::string bytes(units.size() * sizeof(unsigned short), '\0');
  for (std::size_t i = 0; i < units.size(); ++i) {
    store_le(&bytes[i * sizeof(unsigned short)], static_cast<unsigned short>(units[i]));
  }
  return bytes;
}

// What the class of a block decides on.
template <class Blk>
struct Calls;

template <>
struct Calls<SLnk_Blk> {
  using Entry = Cat_SLnk_Blk;
  static constexpr auto to_media = &IMBC_Writer::add_slnk_blk;
  static constexpr auto to_catalog = &Catalog_Writer::add_slnk_blk;
  static constexpr auto earlier = &Catalog_Writer::add_cat_slnk_blk;
};

template <>
struct Calls<HLnk_Blk> {
  using Entry = Cat_HLnk_Blk;
  static constexpr auto to_media = &IMBC_Writer::add_hlnk_blk;
  static constexpr auto to_catalog = &Catalog_Writer::add_hlnk_blk;
  static constexpr auto earlier = &Catalog_Writer::add_cat_hlnk_blk;
};

template <>
struct Calls<Devb_Blk> {
  using Entry = Cat_Devb_Blk;
  static constexpr auto to_media = &IMBC_Writer::add_devb_blk;
  static constexpr auto to_catalog = &Catalog_Writer::add_devb_blk;
  static constexpr auto earlier = &Catalog_Writer::add_cat_devb_blk;
};

}  // namespace

Node_Blk_Writer::Node_Blk_Writer(Ref_Ptr<Event_Handler> evt_handler,
                                 std::unique_ptr<Node_Source> source)
    : path_('\\', false),
      block_buffer_(8),
      evt_handler_(evt_handler),
      source_(std::move(source)),
      data_buffer_(8) {}

bool Node_Blk_Writer::init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
                           IMBC_Writer* mbc_writer, Catalog_Writer* catalog) {
  return DBLK_Writer::init(opt, ctx, buf, mbc_writer, catalog) && source_ != nullptr &&
         block_buffer_.expand(DBLK::image_size);
}

bool Node_Blk_Writer::reset(char* buf, unsigned int size) {
  stream_count_ = 0;
  cat_blk_.set_buffer(buf, size, false);
  if (cat_blk_.hdr().type() != type() || !block_name(cat_blk_, name_)) return false;
  set_entry_path(*ctx_, name_, path_);
  return true;
}

int Node_Blk_Writer::write(IWriter& writer) {
  if (ACE::debug()) ACE_DEBUG((LM_DEBUG, ACE_TEXT("Backup file '%s'\n"), path_.str().c_str()));
  if (is_earlier()) return add_earlier_entry();
  if (!look(opt_->backup_read)) return 1;
  if (source_->type() != type()) {
    errno = EINVAL;
    return skip("Failed to open file");
  }
  return write_node(writer);
}

// What doesn't change isn't looked at, so only its directory can tell that it is gone.
int Node_Blk_Writer::add_earlier_entry() {
  if (ctx_->dir_missing) {
    errno = ctx_->dir_error;
    return skip("Failed to stat file");
  }
  if (!add_earlier()) return -1;
  note_first_name();
  return 1;
}

bool Node_Blk_Writer::look(bool with_attributes) {
  // Behind the block of another directory the entry would be restored into that one.
  if (ctx_->dir_missing) errno = ctx_->dir_error;
  if (!ctx_->dir_missing && source_->look(*ctx_, path_.str(), name_, with_attributes)) return true;
  return skip("Failed to stat file") == 0;
}

int Node_Blk_Writer::skip(const char* message) {
  report_skipped_file(evt_handler_.get(), path_.str(), message);
  return 1;
}

int Node_Blk_Writer::write_block(File_Shaped_Blk& blk, IWriter& writer) {
  set_file_shape(*opt_, *ctx_, name_, blk);
  if (!source_->fill(*ctx_, name_, blk)) return skip("Failed to stat file");
  blk.hdr().displayable_size(shown_size());
  if (!write_shaped_blk(*ctx_, blk, writer) ||
      !write_file_name(*ctx_, buf_, blk, name_, stream_count_, writer) || !write_streams(writer) ||
      !writer.flush()) {
    ctx_->write_failed(writer);
    return -1;
  }
  return 0;
}

int Node_Blk_Writer::finish(bool added) {
  if (!added) {
    ctx_->catalog_failed();
    return -1;
  }
  note_first_name();
  if (evt_handler_.get() != nullptr) {
    evt_handler_->add_size(ctx_->channel, shown_size());
    evt_handler_->add_processed_count(1);
  }
  return 0;
}

void Node_Blk_Writer::note_first_name() {
  const Cat_Hdr& hdr = cat_blk_.hdr();
  if ((hdr.flags() & cat_first_link) != 0) {
    ctx_->hardlink_map->note_saved(hdr.ino(), path_.str());
  }
}

bool Node_Blk_Writer::write_stat(IWriter& writer) {
  return source_->write_stat(*ctx_, buf_, writer);
}

template <class Stream_Type>
bool Node_Blk_Writer::write_whole(Stream_Type& stream, const std::string& bytes, IWriter& writer) {
  if (bytes.empty()) return true;
  const auto size = static_cast<unsigned int>(bytes.size());
  if (!data_buffer_.expand(size)) return false;
  std::memcpy(data_buffer_.data(), bytes.data(), size);
  data_buffer_.size(size);
  stream.reset_stream(size);
  if (!write_to_stream_align(*ctx_, writer) || !stream.write_hdr(writer) ||
      !stream.write_data(data_buffer_, writer) || !stream.end_stream(writer)) {
    return false;
  }
  ctx_->add_length(stream.written_size());
  return write_csum_stream(*ctx_, buf_, stream.checksum(), writer);
}

template <class Blk>
unsigned int Node_Blk_Writer_T<Blk>::type() const {
  return Calls<Blk>::Entry::block_type;
}

template <class Blk>
bool Node_Blk_Writer_T<Blk>::add_earlier() {
  typename Calls<Blk>::Entry entry;
  entry.set_buffer(cat_blk_);
  return (catalog_->*Calls<Blk>::earlier)(entry);
}

template <class Blk>
int Node_Blk_Writer_T<Blk>::write_node(IWriter& writer) {
  if (!write_spad_stream(*opt_, *ctx_, buf_, writer, true)) return -1;
  Blk blk(block_buffer_, true);
  const int result = write_block(blk, writer);
  if (result != 0) return result;
  const Cat_Hdr& hdr = cat_blk_.hdr();
  return finish((mbc_writer_->*Calls<Blk>::to_media)(blk, name_) &&
                (catalog_->*Calls<Blk>::to_catalog)(blk, space(), hdr.ino(), hdr.flags(), name_));
}

template class Node_Blk_Writer_T<SLnk_Blk>;
template class Node_Blk_Writer_T<HLnk_Blk>;
template class Node_Blk_Writer_T<Devb_Blk>;

bool SLnk_Blk_Writer::reset(char* buf, unsigned int size) {
  return Node_Blk_Writer_T::reset(buf, size) && (is_earlier() || source_->has_target(path_.str()));
}

bool SLnk_Blk_Writer::write_streams(IWriter& writer) {
  std::string reparse;
  platform::append_reparse_data(source_->target(), reparse);
  return write_whole(target_, reparse, writer) && write_stat(writer) &&
         write_whole(attributes_, source_->attributes(), writer);
}

bool Devb_Blk_Writer::write_streams(IWriter& writer) {
  return write_stat(writer) && write_whole(attributes_, source_->attributes(), writer);
}

int HLnk_Blk_Writer::write(IWriter& writer) {
  const bool saved = ctx_->hardlink_map->saved_path(cat_blk_.hdr().ino(), first_);
  if (is_earlier() && (saved || ctx_->dir_missing)) return add_earlier_entry();
  if (!look(false)) return 1;
  if (!saved) return write_content(cat_first_link, writer);
  // Another file has taken one of the two names since the walk came by.
  if (!source_->is_same(*ctx_, first_)) return write_content(0, writer);
  return write_node(writer);
}

bool HLnk_Blk_Writer::write_streams(IWriter& writer) {
  return write_whole(link_, utf16_bytes(first_), writer);
}

int HLnk_Blk_Writer::write_content(unsigned short flags, IWriter& writer) {
  switch (source_->type()) {
    case block_file:
      return write_as<Cat_File_Blk>(*writers_.file, flags, writer);
    case block_slnk:
      return write_as<Cat_SLnk_Blk>(*writers_.link, flags, writer);
    case block_devb:
      return write_as<Cat_Devb_Blk>(*writers_.device, flags, writer);
    default:
      errno = EINVAL;
      return skip("Failed to open file");
  }
}

template <class Blk>
int HLnk_Blk_Writer::write_as(DBLK_Writer& content_writer, unsigned short flags, IWriter& writer) {
  const std::unique_ptr<Blk> block = make_room<Blk>(name_);
  const Cat_Hdr& hdr = cat_blk_.hdr();
  if (block == nullptr ||
      !block->set(ctx_->seq, name_, cat_blk_.time(), source_->size(), flags, hdr.ino())) {
    return -1;
  }
  if (content_writer.reset(block->data(), block->hdr().length()))
    return content_writer.write(writer);
  errno = EINVAL;
  return skip("Failed to open file");
}

}  // namespace MTF
