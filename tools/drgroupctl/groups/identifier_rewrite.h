#pragma once

#include <string>

namespace drgroupctl {

// Replaces the identifier of a group in its catalogue, in one transaction.
//
// The library replaces a text wherever it stands in a value. That is right for most identifiers and
// wrong for one that a value has a second time, such as "g", which is also in "-gsnap-", or "17",
// which may be in a time. What it would make of every stored value is therefore looked at
// beforehand; where that is not the new name and nothing else changed, only the names are replaced,
// by a statement of the tool's own.
class IdentifierRewrite {
 public:
  IdentifierRewrite(const std::string& oldId, const std::string& newId)
      : old_(oldId), new_(newId) {}

  // Tells of the stored values, each once.
  void SeeTag(const std::string& tag);
  void SeeGsnapId(const std::string& gsnapId);

  // A value that is a name of neither group; empty when there is none.
  const std::string& Foreign() const { return foreign_; }
  // Whether any value has the old name. Values with the new one were replaced before.
  bool IsNeeded() const { return needed_; }
  // Whether replacing the text everywhere gives every value the new name and changes nothing else.
  bool IsTextual() const { return textual_; }

  // The statements that replace the names and nothing else.
  std::string Sql() const;

 private:
  void See(const std::string& value, const std::string& wanted);

  std::string old_;
  std::string new_;
  std::string foreign_;
  bool needed_ = false;
  bool textual_ = true;
};

// Shows the stored values of the catalogue in `dir` to `rewrite`. False when they cannot be read.
bool ReadIdentifiers(const std::string& dir, IdentifierRewrite& rewrite);

// Gives the group whose database is in `dir`, and whose link is under `oldId`, the new name in
// every record. Nothing is changed when it throws, or when it was done before.
void RewriteCatalogue(const std::string& dir, const std::string& oldId, const std::string& newId);

}  // namespace drgroupctl
