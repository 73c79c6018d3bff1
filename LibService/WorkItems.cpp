#include "LibService/WorkItems.h"

#include <mutex>
#include <new>

#include "LibService/CException.h"
#include "LibService/MessageIds.h"
#include "platform/com/Apartment.h"
#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

CStatus RunInApartment(const CWorkItems::Work& work, CEvent& stop) {
    const CComApartment apartment;
    if (apartment.Result() != S_OK) return HResultError(apartment.Result());
    try {
        const CFaultScope scope;
        return work(stop);
    } catch (CException* exception) {
        return TakeException(exception);
    } catch (const std::exception& exception) {
        return MessageError(message::kCaughtException, exception);
    }
}

}  // namespace

struct CWorkItems::Item {
    CWorkItems& items;
    const Work work;
};

CResult<std::unique_ptr<CWorkItems>> CWorkItems::Create(CThreadSet& threads) {
    auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return stop.Error();
    auto noWorkRunning = CEvent::Create(EventReset::Manual);
    if (!noWorkRunning.IsOk()) return noWorkRunning.Error();
    return std::make_unique<CWorkItems>(threads, std::move(stop).Value(), std::move(noWorkRunning).Value());
}

CWorkItems::CWorkItems(CThreadSet& threads, std::shared_ptr<CEvent> stop,
                       std::shared_ptr<CEvent> noWorkRunning)
    : m_threads(threads), m_stop(std::move(stop)), m_noWorkRunning(std::move(noWorkRunning)) {
    m_noWorkRunning->Set();
}

CStatus CWorkItems::Run(const Work& work, const char* name) {
    std::unique_ptr<Item> item;
    try {
        item = std::make_unique<Item>(*this, work);
    } catch (const std::bad_alloc&) {
        return AllocationError(sizeof(Item));
    }
    Begin();
    if (CStatus status = m_threads.Run(RunItem, item.get(), name); !status.IsOk()) {
        End();
        return status;
    }
    Ignore(item.release());  // the thread owns it now
    return {};
}

void CWorkItems::RunItem(void* argument) {
    std::unique_ptr<Item> item(static_cast<Item*>(argument));
    CWorkItems& items = item->items;
    try {
        RunInApartment(item->work, *items.m_stop).Report();
    } catch (const std::bad_alloc&) {
        Ignore(item);  // its failure cannot even be told
    }
    item.reset();
    items.End();
}

void CWorkItems::Wait() noexcept {
    while (!m_noWorkRunning->Test()) WaitUntilSet(*m_noWorkRunning, std::chrono::hours(1));
    // Whoever set the event has let go of the lock when it can be had: then the items may be destroyed.
    const std::lock_guard lock(m_lock);
}

void CWorkItems::Begin() {
    const std::lock_guard lock(m_lock);
    if (m_running++ == 0) m_noWorkRunning->Clear();
}

void CWorkItems::End() {
    const std::lock_guard lock(m_lock);
    if (--m_running == 0) m_noWorkRunning->Set();
}

}  // namespace quorbel
