// Worlds as texts: to find those again that were met before, and for people.
#include "names.h"
#include "world.h"

namespace two_sides {

namespace {

using VrelDR::Protocol::Attempt;
using VrelDR::Protocol::Head;
using VrelDR::Protocol::PlanFacts;
using VrelDR::Protocol::Term;

// Every number and text with its own end, so that no two worlds are written alike.
class Writer {
 public:
  template <typename Number>
  void Num(Number number) {
    auto left = static_cast<std::uint64_t>(number);
    do {
      text_.push_back(static_cast<char>((left & 0x7fU) | (left > 0x7fU ? 0x80U : 0U)));
      left >>= 7U;
    } while (left != 0);
  }
  void Text(const std::string& text) {
    Num(text.size());
    text_ += text;
  }
  void Of(const Term& term) {
    Num(term.number);
    Text(term.id);
    Text(term.follows);
  }
  void Of(const PlanFacts& facts) {
    Of(facts.term);
    Num(static_cast<unsigned>(facts.source) * 4U + static_cast<unsigned>(facts.works) * 2U +
        (facts.is_deleted ? 1U : 0U));
  }
  void Of(const Head& head) {
    Text(head.snap_id);
    Num(head.time);
  }
  void Of(const Attempt& attempt) {
    Text(attempt.id);
    if (attempt.id.empty() && attempt.op == Op::kNone) return;
    Num(attempt.number);
    Num(static_cast<unsigned>(attempt.op) * 2U + static_cast<unsigned>(attempt.works));
    Text(attempt.base);
    Text(attempt.base_apart);
    Text(attempt.snap_id);
    Text(attempt.target_id);
  }
  template <typename Value>
  void Of(const std::optional<Value>& value) {
    Num(value.has_value() ? 1 : 0);
    if (value.has_value()) Of(*value);
  }
  template <typename Value>
  void Of(const std::vector<Value>& values) {
    Num(values.size());
    for (const Value& each : values) Of(each);
  }
  void Of(const SideRecord& record) {
    Num(static_cast<unsigned>(record.side) * 16U + static_cast<unsigned>(record.state));
    Of(record.facts);
    Of(record.line);
    Num((record.is_writable ? 2U : 0U) + (record.is_told ? 1U : 0U));
    Text(record.target_id);
    Of(record.attempt);
    Num(static_cast<unsigned>(record.progress));
    Num(record.attempts_heard);
    Num(record.terms_heard);
    Of(record.apart);
    Of(record.heads);
    Of(record.arriving);
    Text(record.starts_at);
    Num(record.newest_time);
  }
  void Of(const Image& image) {
    Text(image.id);
    Num(image.bytes);
  }
  void Of(const Copy& copy) {
    Text(copy.target_id);
    Num(copy.bytes);
    Num(copy.is_torn ? 1 : 0);
    Of(copy.images);
    Num(copy.kept);
    Text(copy.spare_id);
  }
  void Of(const Driver& driver) {
    Of(driver.attempt);
    Num((driver.has_begun ? 4U : 0U) + (driver.has_seen_commit ? 2U : 0U) +
        (driver.goes_back ? 1U : 0U));
    Num(driver.refusals);
    for (const auto& each : driver.seen) Of(each);
  }
  void Of(const Late& late) {
    Num(static_cast<unsigned>(late.to) * 32U + static_cast<unsigned>(late.request.kind));
    Of(late.request.attempt);
    Of(late.request.other);
  }
  void Of(const Made& made) {
    Text(made.id);
    Text(made.follows);
    Text(made.follows_apart);
  }
  void Of(const Onlooker& onlooker) {
    Num((onlooker.was_forced ? 1U : 0U) + (onlooker.was_lost ? 2U : 0U) +
        (onlooker.was_synced ? 4U : 0U) + (onlooker.was_gone[0] ? 8U : 0U) +
        (onlooker.was_gone[1] ? 16U : 0U) + (onlooker.may_both_write ? 32U : 0U));
    Num(onlooker.acknowledged);
    Num(onlooker.expected);
    Num(onlooker.newest_time);
    Of(onlooker.taken);
    Of(onlooker.made);
  }
  std::string Take() { return std::move(text_); }

 private:
  std::string text_;
};

std::string Describe(const SideRecord& record, const Copy& copy) {
  std::string text = Named(record.state);
  text += " at " + std::to_string(record.facts.term.number) + ":" + record.facts.term.id;
  text += record.is_writable ? ", writable" : "";
  if (record.attempt.has_value()) {
    text += ", attempt " + record.attempt->id + " #" + std::to_string(record.attempt->number);
    text += " progress " + std::to_string(static_cast<int>(record.progress));
  }
  if (record.apart.has_value()) text += ", apart from " + record.apart->term.id;
  if (!record.is_told) text += ", not told";
  text += ", bytes " + std::to_string(copy.bytes) + (copy.is_torn ? " torn" : "");
  for (const Head& each : record.heads) text += " " + each.snap_id;
  return text;
}

}  // namespace

std::string KeyOf(const World& world, bool isWhole) {
  Writer writer;
  for (const SideRecord& each : world.records) writer.Of(each);
  for (const Copy& each : world.copies) writer.Of(each);
  writer.Of(world.onlooker);
  if (isWhole) {
    for (const auto& each : world.drivers) writer.Of(each);
    writer.Of(world.late);
    writer.Num(world.left.operations);
    writer.Num(world.left.faults);
    writer.Num(world.left.forces);
    writer.Num(world.left.losses);
    writer.Num(world.left.writes);
    writer.Num(world.made_ids);
  }
  return writer.Take();
}

std::string Describe(const World& world) {
  return "main " + Describe(world.records[0], world.copies[0]) + " | DR " +
         Describe(world.records[1], world.copies[1]);
}

}  // namespace two_sides
