// Words of the format that a writer and a reader must agree on: stream ids, bits of attributes, and
// the sizes of headers (Microsoft Tape Format 1.00a and the additions of this system).
#pragma once

namespace MTF {

constexpr unsigned int block_header_size = 52;   // MTF_DB_HDR
constexpr unsigned int stream_header_size = 22;  // MTF_STREAM_HDR
constexpr unsigned int frame_header_size = 24;   // MTF_CMP_HDR
constexpr unsigned short frame_mark = 0x4846;    // the bytes `FH` at the start of a frame
constexpr unsigned int stream_alignment = 4;

// Bits of `attributes` in the block header.
enum Block_Attribute : unsigned int {
  attr_continuation = 0x1,        // TAPE: not the first media of its family
  attr_compression = 0x2,         // VOLB, DIRB, FILE, PDAT, SSET: the set's data is compressed
  attr_set_map_exists = 0x10000,  // TAPE, SSET
  attr_fdd_allowed = 0x20000,     // TAPE
  attr_name_in_stream = 0x20000,  // DIRB, FILE: the name follows in a PNAM or FNAM stream
};

// Bits of the attributes of a directory or file.
enum Entry_Attribute : unsigned int {
  entry_read_only = 0x100,
  entry_hidden = 0x200,
  entry_system = 0x400,
  entry_modified = 0x800,
};

// Bits of `flags` that a catalog entry has of its own.
enum Cat_Flag : unsigned short {
  cat_first_link = 0x2,  // the first name of a hard-linked file
  // On the queue of a careful job alone: the file may have changed though its date is the same.
  cat_uncertain = 0x8000,
};

// Stream ids: four letters read as a little-endian word.
enum Stream_Id : unsigned int {
  stream_stan = 0x4E415453,  // file content
  stream_spar = 0x52415053,  // a stretch of a file with holes
  stream_spad = 0x44415053,  // zero fill
  stream_nacl = 0x4C43414E,
  stream_ntea = 0x4145544E,
  stream_ntoi = 0x494F544E,
  stream_ntpr = 0x5250544E,
  stream_ntrp = 0x5052544E,
  stream_adat = 0x54414441,
  stream_csum = 0x4D555343,  // the checksum of the stream before it
  stream_fnam = 0x4D414E46,  // the name of a file that is not in its block
  stream_pnam = 0x4D414E50,  // the same of a directory
  stream_stat = 0x54415453,
  stream_ctex = 0x58455443,  // ownership and inode data
  stream_link = 0x4B4E494C,  // the first name of a file that has several; of the system's own
  stream_tfdd = 0x44444654,
  stream_tsmp = 0x504D5354,
  stream_meta = 0x4154454D,  // the job's metadata as text; an id of the system's own
};

enum File_System_Attribute : unsigned short {
  fs_modified_when_read = 0x1,
  fs_contains_security = 0x2,
  fs_empty_data = 0x8,  // a STAN stream of length 0
};

enum Media_Format_Attribute : unsigned short {
  mf_variable = 0x2,      // a chunk of a variable-length stream
  mf_variable_end = 0x4,  // its last chunk
  mf_compressed = 0x10,   // the data is in compression frames
  mf_checksummed = 0x20,  // a CSUM stream follows
};

}  // namespace MTF
