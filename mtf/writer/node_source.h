// Where the writers of links, devices and FIFOs look.
#pragma once

#include <memory>
#include <string>

#include "mtf/common/file_blk.h"
#include "mtf/writer/backup_context.h"
#include "services/buffer.h"
#include "services/ref_ptr.h"
#include "services/storage.h"

namespace MTF {

class IBackup_Callback;

// Looks at one entry after the other, without following it. Belongs to one block writer.
class Node_Source {
 public:
  virtual ~Node_Source() = default;

  // False for a symbolic link whose target can't be told, so that it is left out. `path` is the
  // full path of the entry.
  virtual bool has_target(const std::string& path) = 0;

  // Looks at the entry `name` of the current directory, whose full path is `path`, with its
  // extended attributes where `with_attributes` is set. False, with errno, where it can't be
  // examined.
  virtual bool look(const Backup_Context& ctx, const std::string& path, const std::string& name,
                    bool with_attributes) = 0;

  // True if what was looked at and what `path` leads to now are one file.
  virtual bool is_same(const Backup_Context& ctx, const std::string& path) = 0;

  // Gives a block the dates and attributes of what was looked at. False, with errno, if it is gone.
  virtual bool fill(Backup_Context& ctx, const std::string& name, File_Shaped_Blk& blk) = 0;

  // Writes the CTEX stream, alignment included, with the data in `buf`.
  virtual bool write_stat(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, IWriter& writer) = 0;

  // Of what was looked at: the block type that fits it (file_type.h), the content of a regular file
  // and what it takes on its volume in bytes, the native target of a link, and the extended
  // attributes as a NTEA stream holds them.
  unsigned int type() const { return type_; }
  unsigned long long size() const { return size_; }
  unsigned long long space() const { return space_; }
  const std::string& target() const { return target_; }
  const std::string& attributes() const { return attributes_; }

 protected:
  unsigned int type_ = 0;
  unsigned long long size_ = 0;
  unsigned long long space_ = 0;
  std::string target_;
  std::string attributes_;
};

// The local file system. Null, with errno 12, when memory is short.
std::unique_ptr<Node_Source> make_local_node_source();

// A host's sources.
std::unique_ptr<Node_Source> make_callback_node_source(Ref_Ptr<IBackup_Callback> callback);

}  // namespace MTF
