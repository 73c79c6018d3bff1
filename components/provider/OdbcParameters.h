#pragma once

#include <vector>

#include "components/provider/OdbcSession.h"
#include "components/provider/OdbcStatement.h"
#include "components/provider/SqlArguments.h"

namespace quorbel {

/// The values of a statement's parameters, in the order of its text. Numbers and truths become the text that
/// the server reads, streams of bytes the text of a bytea. DB_E_ERRORSINCOMMAND, with a description, for
/// values that the server cannot hold, zero characters in a text and streams of more than kMostStreamBytes
/// among them.
HRESULT ChooseOdbcParameters(const COdbcStatement& statement, const CSqlArguments& arguments,
                             std::vector<OdbcParameter>& parameters);

}  // namespace quorbel
