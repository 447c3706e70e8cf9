#pragma once

namespace VrelDR {

// How far the thing that a record is about has come. Only kWhole ones exist for callers; the others
// are being worked on, or were when somebody crashed. Kept on disk: never change a value.
enum class RecordState : int { kBuilding = 1, kWhole = 2, kDeleting = 3 };

}  // namespace VrelDR
