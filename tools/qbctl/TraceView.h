#pragma once

#include <filesystem>

#include "LibService/trace/TraceText.h"
#include "platform/Error.h"
#include "tools/qbctl/Terminal.h"
#include "tools/qbctl/TraceFilter.h"

namespace quorbel {

enum class TraceForm { Text, Json };

/// Shows records with the texts of a trace message module.
class CTraceView {
 public:
    /// The module that "--messages" names, else the service's beside this program; the form that "--json"
    /// says.
    static CResult<CTraceView> FromArguments(const CArguments& arguments);

    void Show(const CTraceFileRecord& record) const;

 private:
    void ShowText(const CTraceFileRecord& record) const;
    void ShowJson(const CTraceFileRecord& record) const;

    std::shared_ptr<const CTraceTexts> m_texts;
    TraceForm m_form = TraceForm::Text;
};

}  // namespace quorbel
