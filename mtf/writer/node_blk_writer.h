// Writes what has no content of its own: symbolic links (SLNK), devices and FIFOs (DEVB), and the
// further names of files (HLNK). Used where Backup_Option::save_links is set.
#pragma once

#include <memory>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/dblk_writer.h"
#include "mtf/writer/node_source.h"
#include "mtf/writer/nt_stream_factory.h"
#include "oxbase/path.h"

namespace MTF {

// What the three share. All that goes on the media is read before the block is begun, so that none
// of these ever goes corrupt. Where an entry was left out nothing stands on the media.
class Node_Blk_Writer : public DBLK_Writer {
 public:
  bool init(const Backup_Option* opt, Backup_Context* ctx, Ref_Ptr<Buffer> buf,
            IMBC_Writer* mbc_writer, Catalog_Writer* catalog) override;
  bool reset(char* buf, unsigned int size) override;
  int write(IWriter& writer) override;

 protected:
  // `evt_handler` may be null.
  Node_Blk_Writer(Ref_Ptr<Event_Handler> evt_handler, std::unique_ptr<Node_Source> source);

  // Writes the streams of what `source_` looked at.
  virtual bool write_streams(IWriter& writer) = 0;
  // The `displayable_size` of its block.
  virtual unsigned long long shown_size() const { return 0; }
  // The bytes that it takes on its volume, for the catalog.
  virtual unsigned long long space() const { return 0; }
  // Passes the entry of an earlier job on to the catalog.
  virtual bool add_earlier() = 0;
  virtual int write_node(IWriter& writer) = 0;

  bool is_earlier() const { return cat_blk_.hdr().seq() != ctx_->seq; }
  // Looks at the entry; false, with the skip reported, where it can't be saved.
  bool look(bool with_attributes);
  int skip(const char* message);
  int add_earlier_entry();
  int write_block(File_Shaped_Blk& blk, IWriter& writer);
  // What the catalogs said of the block.
  int finish(bool added);
  bool write_stat(IWriter& writer);
  // Writes a stream that holds `bytes`, and its CSUM stream; none where there are no bytes.
  template <class Stream_Type>
  bool write_whole(Stream_Type& stream, const std::string& bytes, IWriter& writer);

  Cat_File_Blk cat_blk_;  // the layout is that of every block like a file's
  oxbase::Path_T<char> path_;
  std::string name_;
  Buffer block_buffer_;
  Ref_Ptr<Event_Handler> evt_handler_;
  std::unique_ptr<Node_Source> source_;

 private:
  void note_first_name();

  Buffer data_buffer_;
  unsigned short stream_count_ = 0;
};

// One of the three: what hangs on the class of its block.
template <class Blk>
class Node_Blk_Writer_T : public Node_Blk_Writer {
 public:
  Node_Blk_Writer_T(Ref_Ptr<Event_Handler> evt_handler, std::unique_ptr<Node_Source> source)
      : Node_Blk_Writer(evt_handler, std::move(source)) {}

  unsigned int type() const override;

 protected:
  bool add_earlier() override;
  int write_node(IWriter& writer) override;
};

// Behind the block: NTRP with the target, CTEX, and with backup reads NTEA.
class SLnk_Blk_Writer : public Node_Blk_Writer_T<SLnk_Blk> {
 public:
  using Node_Blk_Writer_T::Node_Blk_Writer_T;

  bool reset(char* buf, unsigned int size) override;

 protected:
  bool write_streams(IWriter& writer) override;
  unsigned long long shown_size() const override { return source_->target().size(); }
  unsigned long long space() const override { return source_->space(); }

 private:
  NTRP_Stream target_;
  NTEA_Stream attributes_;
};

// Behind the block: CTEX, and with backup reads NTEA.
class Devb_Blk_Writer : public Node_Blk_Writer_T<Devb_Blk> {
 public:
  using Node_Blk_Writer_T::Node_Blk_Writer_T;

 protected:
  bool write_streams(IWriter& writer) override;

 private:
  NTEA_Stream attributes_;
};

// Behind the block: LINK with the path under which the content was saved. Where it was saved under
// none yet, this name takes the place of the first one, with content and all.
class HLnk_Blk_Writer : public Node_Blk_Writer_T<HLnk_Blk> {
 public:
  // The writers of what may have several names. They get such blocks from here too.
  struct Content_Writers {
    Ref_Ptr<DBLK_Writer> file;
    Ref_Ptr<DBLK_Writer> link;
    Ref_Ptr<DBLK_Writer> device;
  };

  HLnk_Blk_Writer(Ref_Ptr<Event_Handler> evt_handler, std::unique_ptr<Node_Source> source,
                  const Content_Writers& writers)
      : Node_Blk_Writer_T(evt_handler, std::move(source)), writers_(writers) {}

  int write(IWriter& writer) override;

 protected:
  bool write_streams(IWriter& writer) override;
  unsigned long long shown_size() const override { return first_.size(); }

 private:
  int write_content(unsigned short flags, IWriter& writer);
  template <class Blk>
  int write_as(DBLK_Writer& content_writer, unsigned short flags, IWriter& writer);

  const Content_Writers writers_;
  std::string first_;  // the path under which the content was saved
  LINK_Stream link_;
};

}  // namespace MTF
