#pragma once

#include <span>
#include <string>
#include <vector>

#include "components/provider/SqlCommand.h"
#include "platform/com/Com.h"

namespace quorbel {

/// A statement as the server gets it.
struct COdbcStatement {
    enum class Kind {
        Query,      ///< SELECT, VALUES, TABLE, WITH: reads, unless the server says that it writes
        Change,     ///< INSERT, UPDATE, DELETE, MERGE
        Other,      ///< any other that the server runs
        Functions,  ///< only calls functions of ours: never reaches the server
    };
    struct CParameter {
        std::wstring name;
        bool decoded = false;  ///< http_decode stood around it
    };

    Kind kind = Kind::Other;
    std::string text;  ///< UTF-8, with a "?" for each parameter
    std::vector<CParameter> parameters;
    bool returnsRows = false;  ///< of a Change: it has a RETURNING clause
    bool startsWith = false;   ///< of a Query: it begins with WITH
};

/// Looks at a statement's words (PostgreSQL's quotes and comments left out) and finds out what it is.
/// DB_E_ERRORSINCOMMAND, with a description, for what cannot be run: a statement that ends or begins a
/// transaction, COPY from or to the client, a "?" operator, a parameter inside quotes, a call of our
/// functions in a statement that reads tables, several statements in one.
HRESULT ParseOdbcStatement(const CSqlStatement& statement, COdbcStatement& parsed);

}  // namespace quorbel
