// Writes the two pieces of one channel of one job: the media, and the catalog that describes it.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mtf/writer/backup_context.h"
#include "mtf/writer/backup_option.h"
#include "mtf/writer/catalog_writer.h"
#include "mtf/writer/imbc_writer.h"
#include "mtf/writer/media_end.h"
#include "mtf/writer/media_header.h"
#include "services/event_handler.h"
#include "services/storage.h"

namespace MTF {

class Data_Set;

// Used by one thread. Calling order: construct, open, add_data_set, write. After a failure the
// channel is left open, and a piece that was started stays on the storage.
class Media_Writer {
 public:
  // `opt` must outlive the writer. `channel_index` is 0 for a job of one channel, else 1 to N.
  Media_Writer(const Backup_Option& opt, unsigned long long channel_index);
  ~Media_Writer();
  Media_Writer(const Media_Writer&) = delete;
  Media_Writer& operator=(const Media_Writer&) = delete;

  // Takes what the media needs and starts its catalogs. `evt_handler` may be null; `volume_map` may
  // be null and is not owned. False, with a line, for block sizes that aren't powers of two up to
  // 32768, don't agree with their shifts, or of which the logical one is larger than the physical.
  bool open(Ref_Ptr<Channel> channel, unsigned int seq, Ref_Ptr<Writer_Hardlink_Map> hardlink_map,
            Ref_Ptr<Event_Handler> evt_handler,
            const std::map<std::string, std::string>* volume_map);

  // Gives the writers small files that are read and compressed already. They must outlive write();
  // null for none.
  void use(const Ready_Files* ready_files) { ctx_.ready_files = ready_files; }

  // Initialises `data_set`, which stays the caller's and must outlive write().
  bool add_data_set(Data_Set* data_set);

  // Writes the media, then the catalog.
  bool write();

  const Cat_Summary& summary() const { return catalog_.summary(); }
  const std::string& mtf_piece_name() const { return mtf_piece_name_; }
  const std::string& cat_piece_name() const { return cat_piece_name_; }
  // Bytes on the storage; 0 until the piece was closed.
  unsigned long long mtf_size() const { return mtf_size_; }
  unsigned long long cat_size() const { return cat_size_; }

  // A Backup_Error and its text.
  unsigned int err_code() const { return ctx_.err_code; }
  const std::string& err_msg() const { return ctx_.err_msg; }

 private:
  bool open_catalog(Event_Handler* evt_handler);
  bool open_media_based_catalog(const Ref_Ptr<Event_Handler>& evt_handler);
  bool write_media();
  bool write_catalog();
  IWriter* open_piece(const std::string& name);
  bool write_failed(IWriter& writer, const std::string& name);
  void send_piece_event(int code, const std::string& name);

  const Backup_Option& opt_;
  const unsigned long long channel_index_;
  Backup_Context ctx_;
  Catalog_Writer catalog_;
  std::unique_ptr<IMBC_Writer> mbc_writer_;
  Media_Header media_header_;
  std::vector<Data_Set*> data_sets_;
  Media_End media_end_;
  Ref_Ptr<Event_Handler> evt_handler_;
  Ref_Ptr<Channel> channel_;
  std::string mtf_piece_name_;
  unsigned long long mtf_size_ = 0;
  std::string cat_piece_name_;
  unsigned long long cat_size_ = 0;
};

}  // namespace MTF
