#include "History.h"

#include <algorithm>

size_t History::Begin(const QString& field, const QString& value, const QString& who, qint64 start,
                      bool certain) {
    std::lock_guard<std::mutex> lock(mutex);
    writes.push_back({value, who, start, atEnd, Running, certain});
    // Threads take their moment before the lock: a write may land a little out of order.
    std::vector<size_t>& list = byField[field];
    list.insert(std::upper_bound(list.begin(), list.end(), start,
                                 [this](qint64 t, size_t w) { return t < writes[w].start; }),
                writes.size() - 1);
    return writes.size() - 1;
}

void History::End(size_t write, Fate fate, qint64 end) {
    std::lock_guard<std::mutex> lock(mutex);
    writes[write].fate = fate;
    writes[write].end = fate == Acknowledged ? end : atEnd;
}

// Before the threads or processes start: reads the fields unlocked.
void History::Initial(const QString& field, const QString& value) {
    const auto list = byField.constFind(field);
    if (list == byField.constEnd() || writes[list->front()].start != LLONG_MIN) {
        End(Begin(field, value, QStringLiteral("set-up"), LLONG_MIN), Acknowledged, LLONG_MIN);
    }
}

void History::Check(const Read& read) {
    QString why;
    std::lock_guard<std::mutex> lock(mutex);
    const Verdict verdict = judge(read, why);
    if (verdict == Open) {
        open.push_back(read);
    } else if (verdict != Fine) {
        static const char* const kinds[] = {"", "", "a value of a write not yet begun is seen",
                                            "a value of a write not acknowledged is seen",
                                            "a stale answer"};
        const bool final = read.start == atEnd && verdict == Stale;
        found[QLatin1String(final ? "an acknowledged write is lost" : kinds[verdict])]
            << QStringLiteral("%1 read %2 as \"%3\": %4")
                   .arg(read.who, read.field, read.value, why);
        ++failures;
    }
}

void History::Fail(const QString& kind, const QString& example) {
    std::lock_guard<std::mutex> lock(mutex);
    found[kind] << example;
    ++failures;
}

const std::map<QString, QStringList>& History::Finish() {
    for (const Read& read : std::vector<Read>(std::move(open))) {
        Check(read);
    }
    for (const Read& read : std::vector<Read>(std::move(open))) {
        Fail(QStringLiteral("a write never ended"),
             read.who + QStringLiteral(" read ") + read.field);
    }
    return found;
}

QStringList History::Report() {
    QStringList lines;
    for (const auto& [kind, examples] : Finish()) {
        lines << QStringLiteral("FAILED %1, %2 times; the first: %3")
                     .arg(kind)
                     .arg(examples.size())
                     .arg(examples.first());
    }
    return lines;
}

// The most telling reason among the writes of the value, unless one of them explains the read.
History::Verdict History::judge(const Read& read, QString& why) const {
    static const std::vector<size_t> none;
    const auto found = byField.constFind(read.field);
    const std::vector<size_t>& list = found == byField.constEnd() ? none : *found;
    Verdict verdict = Early;
    bool running = false;
    why = QStringLiteral("never written");
    for (auto it = list.rbegin(); it != list.rend(); ++it) {
        const Write& w = writes[*it];
        if (w.value != read.value) {
            continue;
        } else if (w.start > read.end) {
            why = verdict > Early ? why : QStringLiteral("written by %1 only after").arg(w.who);
        } else if (w.fate == Refused || w.fate == RolledBack) {
            why = verdict > Unacknowledged
                      ? why
                      : QStringLiteral("written by %1, %2")
                            .arg(w.who, w.fate == Refused ? "refused" : "rolled back");
            verdict = std::max(verdict, Unacknowledged);
        } else if (const Write* later = overwriting(list, w.end, read.start)) {
            why = QStringLiteral("written by %1, overwritten by %2 with \"%3\" before the read")
                      .arg(w.who, later->who, later->value);
            verdict = Stale;
        } else if (w.fate == Running) {
            running = true;
        } else {
            return Fine;
        }
    }
    return running ? Open : verdict;
}

// A certain write acknowledged before `before` that started after `after`.
const History::Write* History::overwriting(const std::vector<size_t>& list, qint64 after,
                                           qint64 before) const {
    auto it = std::upper_bound(list.begin(), list.end(), after,
                               [this](qint64 t, size_t w) { return t < writes[w].start; });
    for (; it != list.end() && writes[*it].start < before; ++it) {
        const Write& u = writes[*it];
        if (u.fate == Acknowledged && u.certain && u.end < before) {
            return &u;
        }
    }
    return nullptr;
}
