#include "base/status.h"

#include <cctype>
#include <cerrno>
#include <system_error>

namespace VrelDR {

namespace {

int CodeOf(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return kErrNoSpace;
    case EROFS:
      return kErrReadOnly;
    default:
      return kErrIo;
  }
}

const char* AdviceFor(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return "; free space and run it again";
    case EROFS:
      return "; make it writable and run it again";
    case EACCES:
    case EPERM:
      return "; run it as a user who may do this";
    case EXDEV:
      return "; unmount what is mounted there and run it again";
    default:
      return "";
  }
}

}  // namespace

Status StatusOfErrno(int error, const std::string& what) {
  std::string text = std::generic_category().message(error);
  // "No space left on device" goes on a sentence here; "I/O error" stays as it is.
  if (text.size() > 1 && std::islower(static_cast<unsigned char>(text[1])) != 0) {
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  }
  text += AdviceFor(error);
  return {CodeOf(error), what.empty() ? text : Quoted(what) + ": " + text};
}

Status InContext(const std::string& context, Status status) {
  if (!status.IsOk()) status.message = context + ": " + status.message;
  return status;
}

}  // namespace VrelDR
