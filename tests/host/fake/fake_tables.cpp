#include <array>

#include "engine/local/local_rows.h"
#include "engine/tables.h"
#include "fake_rows.h"

// In the place of engine/tables.cpp: what is shipped, and the engine that only tests have.

namespace VrelDR {

std::span<const EngineRow> EngineRows() {
  static const std::array rows{Local::kEngineRow, Fake::kEngineRow};
  return rows;
}

std::span<const LinkRow> LinkRows() {
  static const std::array rows{Local::kLinkRow, Fake::kLinkRow};
  return rows;
}

}  // namespace VrelDR
