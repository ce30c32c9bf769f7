// A job over a file system on which a part of a file can't be read.
#include <dirent.h>
#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/support/agent_run.h"
#include "tests/support/media_bytes.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

constexpr unsigned long long size = 1 << 20;
constexpr unsigned long long bad_from = 600001;

// A mounted file system with the files `bad` and `good` of 1 MiB of `x`, the latter listed twice;
// `bad` fails from byte 600001 on, and with `endless` the directory itself behind its last entry.
class Failing_File_System {
 public:
  explicit Failing_File_System(const std::string& at, bool endless = false)
      : at_(at), endless_(endless) {
    device_ = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0";
    mounted_ =
        device_ >= 0 && ::mount("failing", at.c_str(), "fuse", MS_NOSUID, options.c_str()) == 0;
    if (mounted_) server_ = std::thread([this] { serve(); });
  }
  ~Failing_File_System() {
    if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
    if (server_.joinable()) server_.join();
    if (device_ >= 0) ::close(device_);
  }
  bool mounted() const { return mounted_; }

 private:
  enum : unsigned long long { root = FUSE_ROOT_ID, bad, good };

  void serve() {
    std::vector<char> request(1 << 17);
    for (;;) {
      const ssize_t n = ::read(device_, request.data(), request.size());
      if (n < 0 && (errno == EINTR || errno == ENOENT)) continue;
      if (n < static_cast<ssize_t>(sizeof(fuse_in_header))) return;
      fuse_in_header head;
      std::memcpy(&head, request.data(), sizeof head);
      answer(head, request.data() + sizeof head);
    }
  }

  void answer(const fuse_in_header& head, const char* body) {
    switch (head.opcode) {
      case FUSE_FORGET:
      case FUSE_BATCH_FORGET:
      case FUSE_INTERRUPT:
        return;
      case FUSE_INIT: {
        fuse_init_out out = {};
        out.major = FUSE_KERNEL_VERSION;
        out.minor = FUSE_KERNEL_MINOR_VERSION;
        out.max_write = 4096;
        return reply(head, out);
      }
      case FUSE_LOOKUP: {
        fuse_entry_out out = {};
        if (std::strcmp(body, "bad") == 0) out.nodeid = bad;
        if (std::strcmp(body, "good") == 0) out.nodeid = good;
        if (out.nodeid == 0) return fail(head, ENOENT);
        out.attr = attributes(out.nodeid);
        return reply(head, out);
      }
      case FUSE_GETATTR: {
        fuse_attr_out out = {};
        out.attr = attributes(head.nodeid);
        return reply(head, out);
      }
      case FUSE_OPEN:
      case FUSE_OPENDIR: {
        fuse_open_out out = {};
        out.open_flags = FOPEN_DIRECT_IO;
        return reply(head, out);
      }
      case FUSE_READ:
      case FUSE_READDIR: {
        fuse_read_in in;
        std::memcpy(&in, body, sizeof in);
        return head.opcode == FUSE_READ ? read(head, in) : list(head, in);
      }
      default:
        return fail(head, ENOSYS);
    }
  }

  void read(const fuse_in_header& head, const fuse_read_in& in) {
    const unsigned long long end = head.nodeid == bad ? bad_from : size;
    if (in.offset >= end) return end == size ? send(head, 0, "") : fail(head, EIO);
    send(head, 0, std::string(std::min<unsigned long long>(in.size, end - in.offset), 'x'));
  }

  void list(const fuse_in_header& head, const fuse_read_in& in) {
    std::string out;
    if (in.offset != 0 && endless_) return fail(head, EIO);
    if (in.offset == 0) {
      for (const char* name : {"bad", "good", "good"}) {
        fuse_dirent entry = {};
        entry.ino = entry.off = *name == 'b' ? bad : good;
        entry.namelen = static_cast<unsigned int>(std::strlen(name));
        entry.type = DT_REG;
        out.append(reinterpret_cast<const char*>(&entry), FUSE_NAME_OFFSET).append(name);
        out.resize(FUSE_DIRENT_ALIGN(out.size()));
      }
    }
    send(head, 0, out);
  }

  static fuse_attr attributes(unsigned long long node) {
    fuse_attr out = {};
    out.ino = node;
    out.mode = node == root ? S_IFDIR | 0755 : S_IFREG | 0644;
    out.nlink = 1;
    out.size = node == root ? 0 : size;
    out.blocks = out.size / 512;
    out.blksize = 4096;
    return out;
  }

  template <class Out>
  void reply(const fuse_in_header& head, const Out& out) {
    send(head, 0, std::string(reinterpret_cast<const char*>(&out), sizeof out));
  }
  void fail(const fuse_in_header& head, int error) { send(head, -error, ""); }
  void send(const fuse_in_header& head, int error, const std::string& data) {
    fuse_out_header out = {static_cast<unsigned int>(sizeof out + data.size()), error, head.unique};
    const std::string whole = std::string(reinterpret_cast<const char*>(&out), sizeof out) + data;
    if (::write(device_, whole.data(), whole.size()) < 0) return;  // whoever asked is gone
  }

  std::string at_;
  const bool endless_;
  int device_ = -1;
  bool mounted_ = false;
  std::thread server_;
};

class Read_Error : public Agent_Run {};

TEST_F(Read_Error, LeavesACorruptFileAndAWholeJob) {
  const Failing_File_System failing(source());
  if (!failing.mounted()) GTEST_SKIP() << "no file system can be mounted here";
  for (const bool plain : {false, true}) {
    SCOPED_TRACE(plain);
    const Output saved = save(plain ? Arguments{"--json", "--plain"} : Arguments{"--json"});
    EXPECT_EQ(saved.code, 3);
    EXPECT_NE(saved.out.find("16777227"), std::string::npos) << saved.out;  // 0x100000B
    expect_verified();
    const std::string media = read_file(storage("demo.1.0.mtf"));
    const std::size_t cfil = media.find("CFIL");
    ASSERT_NE(cfil, std::string::npos);
    EXPECT_EQ(test::get_le(media, cfil + 52, 4), 0x20000u);
    EXPECT_EQ(test::get_le(media, cfil + 64, 8), bad_from);
    EXPECT_EQ(test::get_le(media, cfil + 72, 2), plain ? 1u : 2u);
    EXPECT_EQ(restore("to").code, 0);
    EXPECT_TRUE(read_file(back("/good")) == std::string(size, 'x'));
    EXPECT_FALSE(fs::exists(back("/bad")));
    for (const char* done : {"to", "storage"}) fs::remove_all(dir_ / done);
  }
}

// What may be missing of a directory is told in a job of each kind, and counts as skipped. What it
// gives twice is saved once, or no job could start from this one.
TEST_F(Read_Error, OfADirectoryIsNeverSilent) {
  write_file(dir_ / "other", "whole");
  const Failing_File_System failing(source(), true);
  if (!failing.mounted()) GTEST_SKIP() << "no file system can be mounted here";
  for (const char* threads : {"1", "2"}) {
    for (const char* command : {"full", "incremental"}) {
      SCOPED_TRACE(std::string(command) + threads);
      const Output saved =
          save({"--threads", threads, "--source", source(), "--source", dir_ / "other"}, command);
      EXPECT_EQ(saved.code, 3);
      EXPECT_NE(saved.out.find("skipped: 1 directory"), std::string::npos) << saved.out;
      EXPECT_NE(saved.err.find("source"), std::string::npos) << saved.err;
      expect_verified();
    }
    fs::remove_all(dir_ / "storage");
  }
}

}  // namespace
