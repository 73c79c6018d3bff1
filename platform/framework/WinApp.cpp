#include "platform/framework/WinApp.h"

#include <atomic>
#include <cassert>
#include <clocale>
#include <utility>

namespace quorbel {

namespace {

std::atomic<CWinApp*> g_application = nullptr;

}  // namespace

CWinApp::CWinApp(std::vector<std::wstring> parameters) : m_parameters(std::move(parameters)) {
    [[maybe_unused]] const CWinApp* const previous = g_application.exchange(this);
    assert(!previous);
}

CWinApp::~CWinApp() {
    g_application = nullptr;
}

CWinApp* CWinApp::Instance() noexcept {
    return g_application;
}

int CWinApp::Execute() {
    InitInstance();
    return ExitInstance();
}

int CWinApp::ExitInstance() {
    m_apartment.reset();
    return 0;
}

bool CWinApp::InitialiseFramework() {
    m_apartment.emplace();
    return Succeeded(m_apartment->Result());
}

void UseLocaleOfUser() noexcept {
    // A locale that is not installed leaves the one that is set.
    std::setlocale(LC_ALL, "");
    std::setlocale(LC_NUMERIC, "C");
    std::setlocale(LC_TIME, "C");
}

}  // namespace quorbel
