#include <algorithm>
#include <memory>

#include "mtf/reader/catalog_match.h"
#include "mtf/reader/job_metadata.h"
#include "mtf/reader/jobs.h"
#include "mtf/reader/media_catalog_check.h"
#include "mtf/reader/media_check.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

// The verification of the two pieces of one channel.
class Channel_Verifier {
 public:
  Channel_Verifier(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
                   Verify_Summary& summary, const Fault_Sink& on_fault)
      : store_(store), job_(job), channel_(channel), summary_(summary), on_fault_(on_fault) {
    mtf_name(job.stem, job.seq, channel, media_name_);
    cat_name(job.stem, job.seq, channel, catalog_name_);
    media_fault_ = [this](unsigned long long position, const std::string& text) {
      tell(media_name_, position, text);
    };
    catalog_fault_ = [this](unsigned long long position, const std::string& text) {
      tell(catalog_name_, position, text);
    };
  }

  void run();

 private:
  std::unique_ptr<IRandom_Reader> open(const std::string& name);
  void check_media(Piece_Window& window, IMedia_Listener* listener);
  void check_catalog(Piece_Window& window, IRandom_Reader* media);

  void tell(const std::string& piece, unsigned long long position, const std::string& text) {
    ++summary_.faults;
    if (on_fault_) on_fault_({piece, position, text});
  }

  IPiece_Store& store_;
  const Job_Pieces& job_;
  unsigned long long channel_;
  Verify_Summary& summary_;
  const Fault_Sink& on_fault_;
  std::string media_name_;
  std::string catalog_name_;
  Fault_At media_fault_;
  Fault_At catalog_fault_;
};

void Channel_Verifier::run() {
  const std::unique_ptr<IRandom_Reader> media = open(media_name_);
  const std::unique_ptr<IRandom_Reader> catalog = open(catalog_name_);
  if (catalog != nullptr) {
    Piece_Window window(*catalog);
    check_catalog(window, media.get());
  } else if (media != nullptr) {
    Piece_Window window(*media);
    check_media(window, nullptr);
  }
}

std::unique_ptr<IRandom_Reader> Channel_Verifier::open(const std::string& name) {
  std::string error;
  std::unique_ptr<IRandom_Reader> reader = store_.open(name, error);
  if (reader == nullptr) {
    tell(name, 0, "can't be opened: " + error);
  } else {
    summary_.bytes += reader->size();
  }
  return reader;
}

void Channel_Verifier::check_media(Piece_Window& window, IMedia_Listener* listener) {
  Media_Check check(window, job_.seq, listener, media_fault_);
  check.run();
  Piece_Window look(window.reader(), Piece_Window::look_capacity);
  Media_Catalog_Check(look, job_.seq, check, media_fault_).run();
  summary_.blocks += check.counts().blocks;
  summary_.streams += check.counts().streams;
  summary_.corrupt_files += check.counts().corrupt_files;
}

void Channel_Verifier::check_catalog(Piece_Window& window, IRandom_Reader* media) {
  Catalog_Walker walker(window, job_.seq, catalog_fault_);
  walker.open();
  Earlier_Media earlier(store_, job_.stem, channel_);
  std::unique_ptr<Piece_Window> media_window;
  std::unique_ptr<Piece_Window> text_window;  // the walk of the media must not be disturbed
  Piece_Window catalog_text(window.reader(), Piece_Window::look_capacity);
  if (media != nullptr) {
    media_window = std::make_unique<Piece_Window>(*media);
    text_window = std::make_unique<Piece_Window>(*media, Piece_Window::look_capacity);
  }
  Catalog_Match match(walker, catalog_text, text_window.get(), job_.seq, earlier, catalog_fault_,
                      media_fault_);
  if (media != nullptr) check_media(*media_window, &match);
  match.finish();
  summary_.entries += match.entries();
}

}  // namespace

Verify_Summary verify_job(IPiece_Store& store, const Job_Pieces& job, const Fault_Sink& on_fault) {
  Verify_Summary summary;
  for (const unsigned long long channel : job.channels) {
    Channel_Verifier(store, job, channel, summary, on_fault).run();
  }
  for (const std::string& piece : missing_pieces(store, job)) {
    ++summary.faults;
    if (on_fault) on_fault({piece, 0, "the piece is missing"});
  }
  return summary;
}

}  // namespace MTF
