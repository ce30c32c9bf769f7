// A directory into which a tree is restored, and nothing outside it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

// What a restored file or directory gets beside its content.
struct Restore_Attributes {
  struct Owner {
    unsigned long long uid;
    unsigned long long gid;
    unsigned int mode;  // the permission bits; others are ignored
  };
  std::optional<Owner> owner;      // without it the file stays the user's alone
  std::optional<long long> mtime;  // seconds since 1970
  unsigned long long length = 0;   // of a file
  // Names and values of extended attributes.
  std::vector<std::pair<std::string, std::string_view>> extended;
  // Takes away an ACL that isn't among them, such as one that came from the directory around it.
  bool exact_acl = false;
};

// What a name stands for.
struct File_Identity {
  unsigned long long device = 0;
  unsigned long long inode = 0;
};

// Every step goes from an open directory to one of its own entries, and through no link, so that no
// name can lead out of the tree. All operations return 0 or the errno; a name that is empty, `.`,
// `..` or holds a slash or NUL gives EINVAL, a link or another non-directory in the way ENOTDIR or
// ELOOP. One thread at a time.
class Restore_Tree {
 public:
  Restore_Tree() = default;
  ~Restore_Tree();
  Restore_Tree(const Restore_Tree&) = delete;
  Restore_Tree& operator=(const Restore_Tree&) = delete;

  // Opens the native directory `to` as the root of the tree, made where it is missing. The links on
  // the way to it are the user's own and are followed.
  int open(const std::string& to);

  // What enter() does about a directory that is missing.
  enum class Make {
    none,    // it is an error
    shared,  // made for all whom the process's mask lets in
    closed,  // made for the user alone, until finish_directory() says more
  };

  // Goes to the directory `names` below the root. What is missing above it is made for the user
  // alone.
  int enter(const std::vector<std::string>& names, Make make);

  // Gives the directory entered last its attributes. An owner is treated as by finish().
  int finish_directory(const Restore_Attributes& attributes);

  // Starts a new file in the directory entered last, under a name of its own that nothing else has.
  int create();

  // Writes all of `size` bytes at `offset` of the new file.
  int write_at(unsigned long long offset, const char* data, std::size_t size);

  // Gives the new file its length and attributes and, last, the name `name`, in place of what had
  // it. An owner that the user may not give is left out, and with it the bits that would lend that
  // owner's rights. On failure the file is still to be discarded.
  int finish(const std::string& name, const Restore_Attributes& attributes);

  // Removes the new file, if there is one.
  void discard();

  // Each makes an entry of the directory entered last, with its attributes, in place of what had
  // the name; on failure that is still there. A link to the native path `target`, which is never
  // followed; a device or FIFO, where `mode` says which, with the device number `number`. A link
  // has no mode of its own.
  int make_link(const std::string& name, const std::string& target,
                const Restore_Attributes& attributes);
  int make_node(const std::string& name, unsigned int mode, unsigned long long number,
                const Restore_Attributes& attributes);

  // Gives the file `first`, names below the root, a further name in the directory entered last.
  // ESTALE if it isn't what `identity` says.
  int make_further_name(const std::vector<std::string>& first, const File_Identity& identity,
                        const std::string& name);

  // What `name` stands for in the directory entered last.
  int identify(const std::string& name, File_Identity& out) const;

  // The extended attributes that the last finish could not set, and why.
  const std::vector<std::string>& left_out() const { return left_out_; }

  // Why the last finish left the owner out; 0 if it didn't.
  int owner_error() const { return owner_error_; }

 private:
  int step(int from, const std::string& name, Make make, int& to);
  int give_owner(int fd, const Restore_Attributes::Owner& owner, unsigned int& mode);
  int set_attributes(int fd, const Restore_Attributes& attributes);
  int set_place_attributes(const Restore_Attributes& attributes, bool is_link);
  void set_extended(int fd, const char* place, const Restore_Attributes& attributes);
  template <class Make_Entry>
  int make_temporary(Make_Entry make_entry);
  int finish_place(const std::string& name, const Restore_Attributes& attributes, bool is_link);
  int take_name(const std::string& name);
  void leave();

  int root_ = -1;
  int directory_ = -1;  // the directory entered last; may be root_
  std::vector<std::string> names_;
  int file_ = -1;
  std::string temporary_;
  unsigned long long numbered_ = 0;  // the temporary names
  std::vector<std::string> left_out_;
  int owner_error_ = 0;
};

}  // namespace platform
