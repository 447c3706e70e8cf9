#include "vreldrcore/uuid.h"

#include <uuid/uuid.h>

namespace VrelDRCore {

std::string GenerateUUID() {
  uuid_t uuid;
  uuid_generate_random(uuid);
  char text[UUID_STR_LEN];
  uuid_unparse_lower(uuid, text);
  return text;
}

}  // namespace VrelDRCore
