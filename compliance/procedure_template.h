#ifndef AMBERVANE_COMPLIANCE_PROCEDURE_TEMPLATE_H_
#define AMBERVANE_COMPLIANCE_PROCEDURE_TEMPLATE_H_

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "base/date.h"
#include "base/localized_message.h"

namespace ambervane {

/// Why the template was not written.
class TemplateError final : public TranslatableError {
 public:
  struct Exists {
    std::string path;
  };
  struct Unavailable {};
  using Reason = std::variant<Exists, Unavailable>;
  explicit TemplateError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// The template of the Verfahrensdokumentation (Swiss GeBüV Art. 4, German GoBD) in Markdown and in
/// the language of those laws. What the program knows of itself is filled in.
std::string procedureTemplateText(Date today, std::string_view host);

/// Writes it to `path`, never over anything. Throws TemplateError, FileError.
void writeProcedureTemplate(const std::filesystem::path& path, std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_PROCEDURE_TEMPLATE_H_
