#pragma once

#include <QList>
#include <limits>

#include "ArticleManager.h"

// Articles read per page.
constexpr unsigned int pageSize = 1000;

// Calls `visit` with every page of articles in PLU order. False when a page failed.
template <typename Visit>
bool forEachPage(ArticleManager& manager, Visit visit) {
    unsigned int from = 0;
    QList<Article> page;
    for (;;) {
        const int result = manager.GetSeeker()->FindNextPlu(from, pageSize, page, false);
        if (result == 3) {
            return true;
        }
        if (result != 0) {
            return false;
        }
        visit(page);
        if (page.last().pluNo == std::numeric_limits<unsigned int>::max()) {
            return true;
        }
        from = page.last().pluNo + 1;
    }
}

// Calls `visit` for every article in PLU order, a page at a time. False when a page failed.
template <typename Visit>
bool forEachArticle(ArticleManager& manager, Visit visit) {
    return forEachPage(manager, [&](const QList<Article>& page) {
        for (const Article& article : page) {
            visit(article);
        }
    });
}
