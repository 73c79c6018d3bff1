#include "components/provider/Execution.h"

namespace quorbel {

HRESULT CExecution::Run(std::shared_ptr<CSqlSession> connection, std::shared_ptr<CCancelFlag> isCanceled,
                        CComPtr<CSinkPoint> point, const CSqlCommand& command,
                        std::span<const CSqlArgument> arguments, std::unique_ptr<CExecution>& execution) {
    const HRESULT taken = connection->Take(*isCanceled);
    if (!Succeeded(taken)) return taken;
    // From here on it is given back with the execution.
    std::unique_ptr<CExecution> run(
        new CExecution(std::move(connection), std::move(isCanceled), std::move(point)));
    const HRESULT result =
        run->m_connection->Get<ISqlConnection>().Execute(command, arguments, run->m_functions, run->m_rows);
    if (Succeeded(result)) execution = std::move(run);
    return result;
}

CExecution::~CExecution() {
    m_rows.reset();
    m_connection->GiveBack();
}

}  // namespace quorbel
