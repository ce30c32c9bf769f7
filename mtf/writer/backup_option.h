// The constant settings of a job.
#pragma once

#include <string>

namespace MTF {

// How the holes of files are treated; stored for the host, read by nothing in this system.
enum Sparse_Method : unsigned short {
  sparse_default = 0,
};

// A plain record. Backup sets the fields that its operations name; a direct user of Media_Writer
// sets what it needs. Block sizes are powers of two up to 32768 and have to agree with their
// shifts.
struct Backup_Option {
  unsigned long long base_fla = 0;  // format logical address of the first block of the media
  unsigned int media_family_id = 0;
  unsigned short media_based_catalog_type = 1;   // the one kind that is written
  unsigned int format_logical_block_size = 512;  // bytes; the grid of all descriptor blocks
  unsigned int physical_block_size = 4096;       // bytes; the grid of filemarks and data set ends
  unsigned int fla_shift = 9;                    // log2 of format_logical_block_size
  unsigned int pba_shift = 12;                   // log2 of physical_block_size
  unsigned short option_flags = 0;  // bit 0 goes into the piece names, the word into the catalog
  std::string media_name;
  std::string media_description;
  std::string software_name;
  std::string minor_resource_id;          // name stem of the pieces
  std::string job_tmp_dir;                // native directory for catalogs in progress
  std::string option_path;                // a part of the names of the local working files
  unsigned short compression_method = 0;  // a Compression_Method; 0 means none
  Sparse_Method sparse_method = sparse_default;
  int compression_level = 1;
  bool backup_read = true;      // read file content as backup records, else as plain bytes
  int threads = 1;              // that scan the sources
  int compression_threads = 1;  // that compress the frames of a channel's long streams
  bool read_ahead = false;      // files of local sources, while reads wait for a disk
  bool save_links = false;      // symbolic links, further names of files, devices and FIFOs too
};

}  // namespace MTF
