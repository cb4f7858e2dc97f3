#pragma once

#include <NODOCore/base/JSONCoding.h>
#include <programs/nodoctl/Answer.h>
#include <programs/nodoctl/Invocation.h>
#include <programs/nodoctl/ReportText.h>

#include <string>

namespace nodo::nodoctl {

template <class Document>
std::string jsonDocument(const Document& document) {
  return encodeJSON(document, JSONLayout::pretty) + "\n";
}

/// A report as the command line wants to see it.
template <class Report>
Answer answer(const Invocation& invocation, const Report& report) {
  return {.output = invocation.json ? jsonDocument(report) : reportText(report)};
}

}  // namespace nodo::nodoctl
