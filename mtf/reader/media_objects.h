// The walk over a media by what a catalog would list of it.
#pragma once

#include <string>

#include "mtf/reader/media_walker.h"

namespace MTF {

// A VOLB, DIRB, PDAT or file-like block with what its streams say.
struct Found_Object {
  unsigned long long position = 0;
  Block_View view{};  // over `bytes`
  std::string bytes;
  std::string name;
  std::string stat;  // the data of its CTEX stream, if it has one
  std::string link;  // the data of its LINK stream, if it has one
  // Of its data: where its SPAD stream starts; 0 where the walk lost its way in front of that
  // or the checksum of a stream is missing.
  unsigned long long end = 0;
  unsigned long long stretches = 0;  // bytes of data in its sparse ranges
  bool sparse = false;
  bool corrupt = false;  // a CFIL block follows: no catalog lists it
};

// The name of an object for a person: of a directory its path below the volume.
std::string shown_name(const Found_Object& object);

// Is told what stands on a media, in order. What it is given is valid until the call returns.
class IObject_Listener {
 public:
  virtual ~IObject_Listener() = default;

  // A block that isn't an object's.
  virtual void on_frame(const Media_Block& /*block*/) {}

  // The place of the text in the metadata stream.
  virtual void on_metadata(unsigned long long /*position*/, unsigned long long /*length*/) {}

  virtual void on_object(const Found_Object& object) = 0;

  // A stretch was passed over in which anything may have stood.
  virtual void on_gap() = 0;
};

// Walks one media. Used once.
class Media_Objects : private IMedia_Visitor {
 public:
  // Keeps all references.
  Media_Objects(Piece_Window& window, IObject_Listener& listener, const Fault_At& on_fault,
                Walk_Depth depth)
      : window_(window),
        listener_(listener),
        on_fault_(on_fault),
        walker_(window, *this, on_fault, depth) {}

  void run();

  const Media_Geometry& geometry() const { return walker_.geometry(); }

 private:
  void on_block(const Media_Block& block) override;
  void on_stream(const Media_Stream& stream) override;
  void on_gap() override;
  void hold(const Media_Block& block);
  void give(bool corrupt);

  Piece_Window& window_;
  IObject_Listener& listener_;
  const Fault_At& on_fault_;
  Media_Walker walker_;
  Found_Object object_;
  bool holding_ = false;
  bool unsummed_ = false;  // the last stream of the object has no CSUM stream behind it
  bool ended_ = false;     // the media has its last block
};

}  // namespace MTF
