#include "mtf/rescue/rebuild.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "mtf/reader/block_loader.h"
#include "mtf/reader/catalog_seqs.h"
#include "mtf/reader/job_metadata.h"
#include "mtf/reader/media_tree.h"
#include "mtf/rescue/catalog_rebuilder.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

constexpr unsigned int set_pba = 2;  // where the SSET block of a media stands

// One catalog that is made again.
class Rebuild {
 public:
  Rebuild(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
          Rebuild_Summary& summary, const Fault_Sink& on_fault)
      : store_(store), job_(job), channel_(channel), summary_(summary), on_fault_(on_fault) {
    mtf_name(job.stem, job.seq, channel, media_);
  }

  bool run(const std::string& path, std::string& error);

 private:
  bool check_tape(std::string& error);
  bool begin(Catalog_Stream& out);
  std::string metadata();
  void open_base(Catalog_Stream& out, const std::string& text);
  void find_taken();
  std::string lost_volume() const;
  void tell(const std::string& piece, unsigned long long position, const std::string& text) {
    if (on_fault_) on_fault_({piece, position, text});
  }

  IPiece_Store& store_;
  const Job_Pieces& job_;
  const unsigned long long channel_;
  Rebuild_Summary& summary_;
  const Fault_Sink& on_fault_;
  std::string media_;
  std::unique_ptr<IRandom_Reader> reader_;
  Media_Geometry geometry_;
  std::string base_catalog_;
  std::unique_ptr<IRandom_Reader> base_reader_;
  Fault_At on_base_fault_ = [this](unsigned long long position, const std::string& text) {
    tell(base_catalog_, position, text);
  };
  std::vector<unsigned long long> taken_;  // sorted
  First_Names first_names_;
  std::unique_ptr<Earlier_Entries> earlier_;
};

bool Rebuild::run(const std::string& path, std::string& error) {
  reader_ = store_.open(media_, error);
  if (reader_ == nullptr || !check_tape(error)) return false;
  Catalog_Stream out(0, geometry_.logical, geometry_.physical, 0);
  const std::string unwritten = "the catalog can't be written to " + path;
  errno = 0;
  if (!out.open(path) || !begin(out)) {
    error = unwritten + (errno != 0 ? std::string(": ") + std::strerror(errno) : "");
    return false;
  }
  const Fault_At tell_media = [this](unsigned long long position, const std::string& text) {
    tell(media_, position, text);
  };
  const std::function<std::string()> volume = [this] { return lost_volume(); };
  Catalog_Rebuilder rebuilder(job_.seq, out, earlier_.get(), first_names_, volume, summary_,
                              tell_media);
  const Fault_At on_fault = [&](unsigned long long position, const std::string& text) {
    rebuilder.note_fault(position);
    tell_media(position, text);
  };
  Piece_Window window(*reader_);
  Media_Objects(window, rebuilder, on_fault, Walk_Depth::data).run();
  if (!rebuilder.met()) {
    error = "nothing on " + media_ + " can be read";
    return false;
  }
  errno = 0;
  const bool written = rebuilder.end();
  if (!written) error = unwritten + (errno != 0 ? std::string(": ") + std::strerror(errno) : "");
  if (earlier_ != nullptr) {
    summary_.earlier = earlier_->kept();
    summary_.unsure = earlier_->unsure();
  }
  return written;
}

// The block sizes come from the TAPE block; behind a damaged one the rest is still there.
bool Rebuild::check_tape(std::string& error) {
  Piece_Window window(*reader_, Piece_Window::look_capacity);
  std::string bytes;
  Media_Block tape;
  if (!load_block(window, 0, bytes, tape) || tape.view.header.type != block_tape) return true;
  read_geometry(tape.view, geometry_);
  const auto seq = tape.view.get<unsigned short>(tape_at::media_sequence_number);
  if (seq == static_cast<unsigned short>(job_.seq)) return true;
  error = media_ + " is a media of job " + std::to_string(seq);
  return false;
}

// What stands in front of the entries. The set stands at one place on every media; its block, which
// the walk meets, corrects that.
bool Rebuild::begin(Catalog_Stream& out) {
  const std::string text = metadata();
  Metadata_Stream stream(make_buffer());
  Buffer block(8);
  if (!stream.set_data(text.data(), static_cast<unsigned int>(text.size())) ||
      !block.expand(DBLK::image_size)) {
    return false;
  }
  stream.hdr().checksum(stream.hdr().calc_checksum());
  SSet_Blk set(block, true);
  set.hdr().format_logical_address(set_pba * geometry_.physical / geometry_.logical);
  out.set_seq(static_cast<unsigned short>(job_.seq));
  first_names_.find(store_, job_, channel_);
  open_base(out, text);
  return out.add_meta_stream(stream) && out.add_sset_blk(set);
}

std::string Rebuild::metadata() {
  std::string text;
  if (find_metadata(store_, job_, channel_, text)) return text;
  summary_.metadata_lost = true;
  tell(media_, 0, "the metadata is lost: what an earlier job holds isn't known");
  Metadata least;
  least.set_seq(job_.seq);
  least.set_channels(channel_ == 0 ? 0 : static_cast<long long>(job_.channels.back()));
  std::stringstream out;
  least.to_s(out);
  return out.str();
}

void Rebuild::open_base(Catalog_Stream& out, const std::string& text) {
  Job_Pieces base = job_;
  base.seq = base_of(store_, job_);
  Metadata_Record record;
  if (base.seq == 0 || base.seq >= job_.seq || !read_metadata(text, record)) return;
  cat_name(base.stem, base.seq, channel_, base_catalog_);
  std::string error;
  base_reader_ = store_.open(base_catalog_, error);
  if (base_reader_ == nullptr || catalog_state(store_, base, channel_) != Catalog_State::sound) {
    summary_.lost_base = base.seq;
  }
  if (base_reader_ == nullptr) return;
  find_taken();
  earlier_ = std::make_unique<Earlier_Entries>(*base_reader_, base.seq, taken_, first_names_, out,
                                               on_base_fault_);
  earlier_->open();
}

// A file goes to another channel when it becomes a further name, or ceases to be one.
void Rebuild::find_taken() {
  const Fault_Sink told_already;
  Media_Tree(store_, job_, told_already).list([this](const Tree_Entry& item) {
    const Job_Entry& entry = item.entry;
    const bool counts = entry.type == block_dirb ? !item.again : entry.channel != channel_;
    if (counts && entry.type != block_volb) taken_.push_back(hash_of(entry.path));
  });
  std::sort(taken_.begin(), taken_.end());
}

// The first one that the media's own catalog lists.
std::string Rebuild::lost_volume() const {
  Job_Pieces own = job_;
  own.channels = {channel_};
  std::string name;
  const Fault_Sink told_already;
  Media_Tree(store_, own, told_already).list([&](const Tree_Entry& item) {
    if (name.empty() && item.entry.type == block_volb) name = item.entry.path;
  });
  return name.empty() ? "/" : name;
}

}  // namespace

Catalog_State catalog_state(IPiece_Store& store, const Job_Pieces& job,
                            unsigned long long channel) {
  std::string catalog, error;
  cat_name(job.stem, job.seq, channel, catalog);
  const std::unique_ptr<IRandom_Reader> reader = store.open(catalog, error);
  if (reader == nullptr) return Catalog_State::missing;
  const auto all = [](unsigned int) { return true; };
  return walk_seqs(store, job, channel, all) ? Catalog_State::sound : Catalog_State::damaged;
}

unsigned int base_of(IPiece_Store& store, const Job_Pieces& job) {
  std::string text;
  Metadata_Record record;
  if (job.channels.empty() || !find_metadata(store, job, job.channels.front(), text) ||
      !read_metadata(text, record)) {
    return 0;
  }
  return stored_base(record, job.seq);
}

bool rebuild_catalog(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
                     const std::string& path, Rebuild_Summary& summary, const Fault_Sink& on_fault,
                     std::string& error) {
  summary = {};
  return Rebuild(store, job, channel, summary, on_fault).run(path, error);
}

}  // namespace MTF
