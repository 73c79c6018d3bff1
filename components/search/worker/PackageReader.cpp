#include "components/search/worker/PackageReader.h"

#include "components/search/text/Problems.h"

namespace quorbel {

void CPropertyContent::OnStart(std::string_view, std::span<const CXmlAttribute>) {
    m_sink.emplace(kLargestProperty);
}

void CPropertyContent::OnEnd(std::string_view name) {
    if (m_sink && !m_sink->IsEmpty()) m_values.try_emplace(std::string(name), m_sink->Take());
    m_sink.reset();
}

void CPropertyContent::OnText(std::string_view text) {
    if (m_sink) m_sink->Add(text);
}

std::string CPropertyContent::Value(std::string_view name) const {
    const auto found = m_values.find(name);
    return found == m_values.end() ? std::string() : found->second;
}

bool CPackageReader::IsRead(ZipStep step) {
    switch (step) {
        case ZipStep::Done: return true;
        case ZipStep::End: break;
        case ZipStep::Damaged: SetProblem(kDamaged); break;
        case ZipStep::Encrypted: SetProblem(kEncrypted); break;
        case ZipStep::TooMuch: SetProblem(kExpandsTooMuch); break;
        case ZipStep::TooMany: SetProblem(kTooManyParts); break;
        case ZipStep::NoMemory: SetProblem(kNoMemory); break;
    }
    return false;
}

void CPackageReader::SetProblem(std::string_view problem) {
    if (m_problem.empty()) m_problem = problem;
}

bool CPackageReader::Next(std::string& name) {
    return m_problem.empty() && IsRead(m_zip.Next(name));
}

void CPackageReader::Parse(IXmlContent& content) {
    CXmlParser parser(content);
    std::string_view bytes;
    ZipStep step = ZipStep::Done;
    while ((step = m_zip.Read(bytes)) == ZipStep::Done) {
        if (!parser.Parse(bytes)) break;
    }
    if (step == ZipStep::End) {
        if (!parser.Finish()) SetProblem(kDamaged);
    } else if (IsRead(step)) {
        SetProblem(kDamaged);
    }
}

void CPackageReader::ParseText(CPartPlace place,
                               const std::function<void(CTextSink&, CPackageReader&)>& parse) {
    CTextSink sink(kLargestText);
    parse(sink, *this);
    const bool isFull = sink.IsFull();
    std::string text = sink.Take();
    m_size += text.size() + 1;
    if (isFull || m_size > kLargestText) SetProblem(kTooMuchText);
    m_texts.try_emplace(place, std::move(text));
}

std::string CPackageReader::TakeText() {
    std::string all;
    all.reserve(m_size);
    for (auto& [place, text] : m_texts) {
        if (!all.empty() && !text.empty()) all.push_back('\n');
        all.append(text);
    }
    m_texts.clear();
    return all;
}

}  // namespace quorbel
