// Saves one directory into pieces in another: embed /ABSOLUTE/SOURCE EXISTING_DIRECTORY
#include <fstream>
#include <iostream>

#include "mtf/writer/backup.h"
#include "services/compression.h"
#include "services/json_spirit.h"

std::string directory;  // where the pieces go

struct Storage : MTF::Channel, MTF::IWriter {  // one piece at a time, as a file
  std::ofstream file;
  unsigned long long bytes = 0;
  bool open(const char* name, int, int) override {
    file = std::ofstream(directory + "/" + name, std::ios::binary);
    bytes = 0;
    return file.good();
  }
  unsigned long long write(const char* data, unsigned long long size) override {
    bytes += size;
    return file.write(data, static_cast<std::streamsize>(size)) ? size : 0;
  }
  bool flush() override { return file.good(); }
  unsigned long long write_filemark(unsigned long long) override { return 0; }
  unsigned long long size() override { return bytes; }
  bool close() override { return file.is_open() ? (file.close(), file.good()) : true; }
  void disconnect() override {}
  bool remove(const char* name) override {
    return std::remove((directory + "/" + name).c_str()) == 0;
  }
  MTF::IWriter* writer() override { return this; }
  MTF::IReader* reader() override { return nullptr; }
  std::string err_msg() override { return file.good() ? "" : "the storage failed"; }
};

struct Factory : MTF::Channel_Factory {
  MTF::Ref_Ptr<MTF::Channel> create() override { return MTF::Ref_Ptr<MTF::Channel>(new Storage); }
};

struct Events : MTF::Event_Handler {
  int handle_event(int, const json_spirit::Value& document) override {
    return std::cout << document << std::endl, 0;
  }
};

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  directory = argv[2];
  MTF::Metadata metadata;
  MTF::Backup job(MTF::Ref_Ptr<MTF::Event_Handler>(new Events), metadata, nullptr);
  job.add_source(argv[1]);
  MTF::Job_Settings settings;
  settings.minor_resource_id = "demo";
  settings.channel_factory = MTF::Ref_Ptr<MTF::Channel_Factory>(new Factory);
  const bool done = job.init(settings) && job.full();
  job.clean();
  if (!done) job.remove_storage_file();
  return done ? 0 : 1;
}
