#include "tests/data/QueryFixture.h"

#include <fstream>
#include <sqlite3.h>

#include "components/provider/ArchiveProvider.h"
#include "data/SQLRequestHandler.h"
#include "platform/oledb/DataInitialize.h"

namespace quorbel {

CQueryFixture::CQueryFixture()
    : m_initialize(RegisterDataInitialize()), m_provider(RegisterArchiveProvider(m_localMachine)) {
    CSQLRequestHandler::Register(m_clock);
    const auto archive = m_localMachine->Create(L"SOFTWARE\\Quorbel\\Archive").Value();
    EXPECT_EQ(archive->Set(L"Database", CValue::FromText(FromUtf8(Path("archive.db").string()))),
              ErrorCode::Success);
    RunSql("PRAGMA journal_mode = WAL");
}

CQueryFixture::~CQueryFixture() {
    End();
}

void CQueryFixture::RunSql(const std::string& statements) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(Path("archive.db").c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(database);
    sqlite3_close(database);
}

void CQueryFixture::Write(const std::string& name, std::string_view text) {
    Folder("root");
    std::ofstream(Path("root/" + name), std::ios::binary) << text;
}

void CQueryFixture::Serve(const Values& values) {
    m_port = AddDefaultHost(values);
    Start();
}

nlohmann::json CQueryFixture::Rows(std::string_view target) {
    const CHttpReply reply = Json(target);
    EXPECT_EQ(reply.status, 200) << target;
    return nlohmann::json::parse(reply.body, nullptr, false);
}

CHttpReply CQueryFixture::Post(std::string_view target, std::string_view form) {
    CHttpConnection connection(m_port);
    return connection
        .Request("POST", target,
                 "Accept: application/json\r\nContent-Type: application/x-www-form-urlencoded\r\n", form)
        .value_or(CHttpReply());
}

void CQueryFixture::ExpectBareStatus(const CHttpReply& reply, int status) {
    EXPECT_EQ(reply.status, status);
    EXPECT_EQ(reply.body, "");
}

}  // namespace quorbel
