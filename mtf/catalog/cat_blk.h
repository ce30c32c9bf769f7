// A catalog block: at once the message of a job's queues and the record of its catalog files.
#pragma once

#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "mtf/catalog/cat_hdr.h"
#include "mtf/common/tape_address.h"

namespace MTF {

// Holds the bytes of a block or views bytes of somebody else, which it must not outlive.
class Cat_Blk {
 public:
  // No data.
  Cat_Blk();
  // Over `data`, of `size` bytes. With `own` true the block frees it by delete[].
  Cat_Blk(char* data, unsigned int size, bool own);
  Cat_Blk(Cat_Blk&& other);
  virtual ~Cat_Blk();
  Cat_Blk(const Cat_Blk&) = delete;
  Cat_Blk& operator=(const Cat_Blk&) = delete;

  // A new block of class `Blk` and `size` bytes of data behind it, in one piece of memory that goes
  // with the block. Null, with errno 12, when memory is short.
  template <class Blk>
  static std::unique_ptr<Blk> create(unsigned int size);

  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept;
  static void operator delete(void* memory) noexcept;
  static void operator delete(void* memory, const std::nothrow_t& tag) noexcept;

  // Keeps a place among the virtual operations. No block has one of its own.
  virtual void release() {}

  void set_buffer(char* data, unsigned int size, bool own);
  // A view of the bytes of `other`.
  void set_buffer(const Cat_Blk& other);

  // Allocates `size` zeroed bytes and owns them. False, with errno 12, when memory is short.
  bool alloc_buffer(unsigned int size);

  Cat_Hdr& hdr() { return hdr_; }
  const Cat_Hdr& hdr() const { return hdr_; }

  char* data() const { return data_; }
  bool owns_data() const { return owned_ != nullptr; }
  unsigned int capacity() const { return capacity_; }

  // Makes this block a FEND block, which ends a queue or a file. It must have room for 64 bytes.
  void set_end();

 protected:
  // Starts the record over: its fixed size and type, all else zero.
  void stamp(unsigned int fixed_size, unsigned int type);

  // Puts `name` behind the record and points the address at `address_offset` to it. False where the
  // data has no room.
  bool store_name(unsigned int address_offset, std::string_view name);

 private:
  // How many bytes more than the object an allocation has.
  struct Room {
    unsigned int size;
  };
  static void* operator new(std::size_t size, Room room) noexcept;
  static void operator delete(void* memory, Room room) noexcept;

  std::unique_ptr<char[]> owned_;
  char* data_;
  unsigned int capacity_;
  Cat_Hdr hdr_;
};

template <class Blk>
std::unique_ptr<Blk> Cat_Blk::create(unsigned int size) {
  static_assert(sizeof(Blk) == sizeof(Cat_Blk), "what is allocated is freed as a Cat_Blk");
  std::unique_ptr<Blk> block(new (Room{size}) Blk);
  if (block != nullptr) {
    block->set_buffer(reinterpret_cast<char*>(block.get()) + sizeof(Blk), size, false);
  }
  return block;
}

// A queue counts its entries as objects of this size: 16667 of them reach its mark of 800000.
static_assert(sizeof(Cat_Blk) == 48, "the marks of the queues count on this size");

// The name address of the block whose type tells its layout; null for a block that has none (FEND)
// or is shorter than its fixed part.
const MTF_TAPE_ADDRESS* name_address(const Cat_Blk& block);

// The bytes of the block's name; false if it has none or if the address leads out of the block.
bool block_name(const Cat_Blk& block, std::string& out);

}  // namespace MTF
