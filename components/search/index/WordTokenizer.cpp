#include "components/search/index/Fts5.h"
#include "components/search/index/WordBreaker.h"

namespace quorbel {

namespace {

int Create(void*, const char**, int, Fts5Tokenizer** tokenizer) {
    static char noState;  // the breaker has none, but the result must not be null
    *tokenizer = reinterpret_cast<Fts5Tokenizer*>(&noState);
    return SQLITE_OK;
}

void Delete(Fts5Tokenizer*) {}

int Tokenize(Fts5Tokenizer*, void* context, int, const char* text, int size,
             int (*take)(void*, int, const char*, int, int, int)) {
    int result = SQLITE_OK;
    BreakWords({text, static_cast<std::size_t>(size)},
               [&](std::string_view word, std::size_t begin, std::size_t end) {
                   result = take(context, 0, word.data(), static_cast<int>(word.size()),
                                 static_cast<int>(begin), static_cast<int>(end));
                   return result == SQLITE_OK;
               });
    return result;
}

}  // namespace

int RegisterWordTokenizer(fts5_api& fts5) {
    fts5_tokenizer methods{Create, Delete, Tokenize};
    return fts5.xCreateTokenizer(&fts5, "archive", nullptr, &methods, nullptr);
}

}  // namespace quorbel
