#include "engine/tables.h"

#include <array>

#include "engine/local/local_rows.h"

namespace VrelDR {

namespace {

constexpr std::array kEngines{Local::kEngineRow};
constexpr std::array kLinks{Local::kLinkRow};

}  // namespace

std::span<const EngineRow> EngineRows() {
  return kEngines;
}

std::span<const LinkRow> LinkRows() {
  return kLinks;
}

}  // namespace VrelDR
