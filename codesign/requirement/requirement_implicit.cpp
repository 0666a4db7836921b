#include "codesign/requirement/requirement.h"
#include "codesign/requirement/requirement_words.h"
#include "codesign/trust/certificate_facts.h"

// Requirements for code that does not bring its own.

namespace tks::codesign {
namespace {

using requirement::hashText;
using requirement::plainOrQuoted;
using requirement::slotText;

/// How requirements name a certificate.
std::string nameOf(X509* certificate) { return hashText(hashOfCertificate(certificate)); }

}  // namespace

std::string implicitRequirement(const RequirementContext& context) {
  if (context.chain.empty()) {
    return "cdhash " + hashText({reinterpret_cast<const char*>(context.cdHash.data()), context.cdHash.size()});
  }
  const std::string name = "identifier " + requirement::quoted(context.identifier);
  if (isSignedByApple(context.chain, context.roots)) return name + " and anchor apple";
  if (isDeveloperChain(context.chain, *context.roots)) {
    return name +
           " and anchor apple generic and certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */"
           " and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */"
           " and certificate leaf[subject.OU] = " +
           plainOrQuoted(organizationalUnitOf(context.chain.front()).value_or(""));
  }
  // The highest certificate that still belongs to the leaf's organization stands for it.
  const TKSValue organization = subjectField(context.chain.front(), "subject.O");
  std::size_t slot = 0;
  while (organization.isText() && slot + 1 < context.chain.size() &&
         subjectField(context.chain[slot + 1], "subject.O") == organization) {
    ++slot;
  }
  const bool isRoot = slot > 0 && slot + 1 == context.chain.size();
  return name + " and certificate " + slotText(isRoot ? -1 : static_cast<std::int32_t>(slot)) + " = " +
         nameOf(context.chain[slot]);
}

std::string sameMakerRequirement(const Chain& chain) {
  const std::optional<std::string> unit = organizationalUnitOf(chain.front());
  const std::string leaf = unit ? "certificate leaf[subject.OU] = " + requirement::quoted(*unit)
                                : "certificate leaf = " + nameOf(chain.front());
  return "certificate root = " + nameOf(chain.back()) + " and " + leaf;
}

}  // namespace tks::codesign
