#pragma once

#include <nlohmann/json.hpp>

#include "tests/support/service/ServiceFixture.h"

struct sqlite3;

namespace quorbel {

/// A service that answers query files from a database of its own, over a host with one root.
class CQueryFixture : public CServiceFixture {
 protected:
    CQueryFixture();
    ~CQueryFixture() override;

    /// Runs statements on the database, as another program would.
    void RunSql(const std::string& statements);
    /// Writes a file of the root.
    void Write(const std::string& name, std::string_view text);
    /// Serves with these values of the host.
    void Serve(const Values& values = {});

    /// The reply to a GET that accepts JSON.
    CHttpReply Json(std::string_view target) { return Get(m_port, target, "Accept: application/json\r\n"); }
    /// The rows of a query, which must be answered 200.
    nlohmann::json Rows(std::string_view target);
    CHttpReply Post(std::string_view target, std::string_view form);
    /// Statuses and bodies: no answer of a failure holds more than its status.
    void ExpectBareStatus(const CHttpReply& reply, int status);

    int m_port = 0;

 private:
    CComRegistration m_initialize;
    CComRegistration m_provider;
};

}  // namespace quorbel
