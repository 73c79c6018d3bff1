#pragma once

#include <span>
#include <vector>

#include "components/provider/OdbcSession.h"
#include "components/provider/OdbcStatement.h"
#include "components/provider/SqlCommand.h"

namespace quorbel {

/// The values of a statement's parameters, in the order of its text. Numbers and truths become the text that
/// the server reads, streams of bytes the text of a bytea. DB_E_ERRORSINCOMMAND, with a description, for
/// values that the server cannot hold, zero characters in a text among them.
HRESULT ChooseOdbcParameters(const COdbcStatement& statement, std::span<const CSqlArgument> arguments,
                             std::vector<OdbcParameter>& parameters);

}  // namespace quorbel
