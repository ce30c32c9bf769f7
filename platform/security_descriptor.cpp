#include "platform/security_descriptor.h"

#include "platform/little_endian.h"

namespace platform {
namespace {

constexpr unsigned char revision = 1;                // of a descriptor and of a SID
constexpr unsigned short self_relative = 0x8000;     // SE_SELF_RELATIVE
constexpr unsigned short dacl_present = 0x4;         // SE_DACL_PRESENT
constexpr unsigned char acl_revision = 2;            // ACL_REVISION
constexpr unsigned char access_denied_ace_type = 1;  // ACCESS_DENIED_ACE_TYPE
constexpr unsigned int no_rights = 0;
constexpr unsigned int mode_permissions = 07777;

constexpr unsigned char nt_authority = 5;    // S-1-5
constexpr unsigned int unix_authority = 88;  // S-1-5-88
enum Unix_Id : unsigned int { unix_owner = 1, unix_group = 2, unix_mode = 3 };

constexpr unsigned int descriptor_size = 20;
constexpr unsigned char sub_authorities = 3;
constexpr unsigned int sid_size = 8 + 4 * sub_authorities;
constexpr unsigned int ace_size = 8 + sid_size;
constexpr unsigned int acl_size = 8 + ace_size;

void append_sid(Unix_Id kind, unsigned int value, std::string& out) {
  out += static_cast<char>(revision);
  out += static_cast<char>(sub_authorities);
  out.append(5, '\0');  // the authority is six bytes, the highest first
  out += static_cast<char>(nt_authority);
  for (const unsigned int part : {unix_authority, static_cast<unsigned int>(kind), value}) {
    append_little_endian(out, part);
  }
}

void append_dacl(unsigned int mode, std::string& out) {
  out += static_cast<char>(acl_revision);
  out += '\0';
  append_little_endian(out, static_cast<unsigned short>(acl_size));
  append_little_endian(out, static_cast<unsigned short>(1));  // entries
  append_little_endian(out, static_cast<unsigned short>(0));
  out += static_cast<char>(access_denied_ace_type);
  out += '\0';
  append_little_endian(out, static_cast<unsigned short>(ace_size));
  append_little_endian(out, no_rights);
  append_sid(unix_mode, mode & mode_permissions, out);
}

}  // namespace

void append_security_descriptor(unsigned int uid, unsigned int gid, unsigned int mode,
                                std::string& out) {
  out += static_cast<char>(revision);
  out += '\0';
  append_little_endian(out, static_cast<unsigned short>(self_relative | dacl_present));
  append_little_endian(out, descriptor_size);                 // owner
  append_little_endian(out, descriptor_size + sid_size);      // group
  append_little_endian(out, 0U);                              // no SACL
  append_little_endian(out, descriptor_size + 2 * sid_size);  // DACL
  append_sid(unix_owner, uid, out);
  append_sid(unix_group, gid, out);
  append_dacl(mode, out);
}

}  // namespace platform
