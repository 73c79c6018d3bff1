#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "components/search/index/DocumentId.h"
#include "components/search/index/Fts5.h"

namespace quorbel {

namespace {

/// How much an occurrence counts, by the column of `words`: content, title, author, name.
constexpr double kWeights[] = {1.0, 5.0, 3.0, 4.0};

/// The usual constants of Okapi BM25.
constexpr double kSaturation = 1.2;
constexpr double kLengthShare = 0.75;
/// What a word that is in more than half of all documents counts.
constexpr double kLeastWeight = 1e-6;
/// What the one phrase of a query counts: no order depends on it.
constexpr double kOnlyWeight = 8;

/// Rows between two looks at whether the query must end.
constexpr std::int64_t kRowsBetweenLooks = 512;

const std::function<bool()>& MustEnd(const Fts5ExtensionApi& api, Fts5Context* context) {
    return *static_cast<const std::function<bool()>*>(api.xUserData(context));
}

/// What is the same for all rows of one query.
struct CQueryWeights {
    std::int64_t rows = 0;  ///< that were weighed
    double averageLength = 1;
    std::vector<double> phrases;  ///< the weight of each phrase
};

/// Counts the documents with a phrase, up to one more than `most`.
struct CCount {
    const std::function<bool()>& mustEnd;
    std::int64_t most = 0;
    std::int64_t found = 0;
};
int CountOne(const Fts5ExtensionApi*, Fts5Context*, void* data) {
    auto& count = *static_cast<CCount*>(data);
    if (++count.found % kRowsBetweenLooks == 0 && count.mustEnd()) return SQLITE_INTERRUPT;
    return count.found > count.most ? SQLITE_DONE : SQLITE_OK;
}

int Weigh(const Fts5ExtensionApi& api, Fts5Context* context, CQueryWeights& weights) {
    sqlite3_int64 rows = 0;
    sqlite3_int64 words = 0;
    int result = api.xRowCount(context, &rows);
    if (result == SQLITE_OK) result = api.xColumnTotalSize(context, -1, &words);
    if (result != SQLITE_OK) return result;
    const auto documents = static_cast<double>(std::max<sqlite3_int64>(rows, 1));
    weights.averageLength = std::max(static_cast<double>(words) / documents, 1.0);
    const int phrases = api.xPhraseCount(context);
    weights.phrases.assign(static_cast<std::size_t>(phrases), kOnlyWeight);
    for (int phrase = 0; phrases > 1 && phrase != phrases; ++phrase) {
        CCount count{MustEnd(api, context), rows / 2};
        result = api.xQueryPhrase(context, phrase, &count, CountOne);
        if (result != SQLITE_OK) return result;
        const auto with = static_cast<double>(count.found);
        weights.phrases[static_cast<std::size_t>(phrase)] =
            std::max(std::log((documents - with + 0.5) / (with + 0.5)), kLeastWeight);
    }
    // Beside a phrase that says something, those that say nothing are not looked at.
    if (std::ranges::max(weights.phrases) > kLeastWeight) {
        std::ranges::replace(weights.phrases, kLeastWeight, 0.0);
    }
    return SQLITE_OK;
}

/// The weights of the query that runs; made at its first row.
CQueryWeights* WeightsOf(const Fts5ExtensionApi& api, Fts5Context* context, int& result) {
    if (auto* const known = static_cast<CQueryWeights*>(api.xGetAuxdata(context, 0))) return known;
    auto made = std::make_unique<CQueryWeights>();
    result = Weigh(api, context, *made);
    if (result != SQLITE_OK) return nullptr;
    CQueryWeights* const weights = made.release();
    result = api.xSetAuxdata(context, weights, [](void* data) { delete static_cast<CQueryWeights*>(data); });
    return result == SQLITE_OK ? weights : nullptr;
}

double Score(const Fts5ExtensionApi& api, Fts5Context* context, const CQueryWeights& weights) {
    const double length = LengthOfClass(CDocumentId::LengthClassOf(api.xRowid(context)));
    const double norm = kSaturation * (1 - kLengthShare + kLengthShare * length / weights.averageLength);
    double score = 0;
    for (std::size_t phrase = 0; phrase != weights.phrases.size(); ++phrase) {
        if (weights.phrases[phrase] == 0) continue;
        double frequency = 0;
        Fts5PhraseIter at;
        int column = -1;
        int offset = 0;
        if (api.xPhraseFirst(context, static_cast<int>(phrase), &at, &column, &offset) != SQLITE_OK) continue;
        for (; column >= 0; api.xPhraseNext(context, &at, &column, &offset)) {
            frequency += kWeights[static_cast<std::size_t>(column) % std::size(kWeights)];
        }
        score += weights.phrases[phrase] * frequency * (kSaturation + 1) / (frequency + norm);
    }
    return score;
}

void Relevance(const Fts5ExtensionApi* api, Fts5Context* context, sqlite3_context* answer, int,
               sqlite3_value**) {
    try {
        int result = SQLITE_OK;
        CQueryWeights* const weights = WeightsOf(*api, context, result);
        if (weights && ++weights->rows % kRowsBetweenLooks == 0 && MustEnd(*api, context)()) {
            ::sqlite3_result_error_code(answer, SQLITE_INTERRUPT);
        } else if (weights) {
            ::sqlite3_result_double(answer, Score(*api, context, *weights));
        } else {
            ::sqlite3_result_error_code(answer, result);
        }
    } catch (const std::bad_alloc&) {
        ::sqlite3_result_error_nomem(answer);
    }
}

}  // namespace

int RegisterRelevance(fts5_api& fts5, const std::function<bool()>& mustEnd) {
    void* const data = const_cast<std::function<bool()>*>(&mustEnd);
    return fts5.xCreateFunction(&fts5, "relevance", data, Relevance, nullptr);
}

}  // namespace quorbel
