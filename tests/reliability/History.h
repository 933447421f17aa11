#pragma once

// The real-time record both concurrency programs check their answers against (the thread test
// on one sequence shared by its threads, multi_process on one monotonic clock shared by its
// processes). Every write to a field (a PLU's name or price, a barcode holding an article, a
// department, the tax rates) is recorded with its start and, when acknowledged, its end; every
// read with its start, end and the value answered. A read is wrong when its value comes from a
// write never made, refused or rolled back, or not started when the read ended, or when a write
// to the field acknowledged before the read started had itself started after the value's write
// was acknowledged. A read of the final state (start == end == atEnd) must find a value of an
// acknowledged write no other acknowledged write started after.

#include <QHash>
#include <QString>
#include <QStringList>
#include <atomic>
#include <climits>
#include <map>
#include <mutex>
#include <vector>

class History {
public:
    enum Fate { Running, Acknowledged, Refused, RolledBack };
    struct Read {
        QString field, value, who;
        qint64 start, end;
    };
    static constexpr qint64 atEnd = LLONG_MAX;

    // One sequence for threads that take their moments from it.
    qint64 Now() { return ++clock; }
    // Records a write. `certain` false: its acknowledgement does not say that it changed anything
    // (a price set for a PLU that may just have been deleted), so it overwrites nothing.
    size_t Begin(const QString& field, const QString& value, const QString& who, qint64 start,
                 bool certain = true);
    void End(size_t write, Fate fate, qint64 end);
    // What the field held before anything began (once per field).
    void Initial(const QString& field, const QString& value);
    // Judges a read, and records what is wrong with it. A read only a write not yet ended
    // explains is judged again by Finish.
    void Check(const Read& read);
    // Judges a value of the final state, once every write has ended.
    void CheckEnd(const QString& field, const QString& value) {
        Check({field, value, QStringLiteral("the end"), atEnd, atEnd});
    }
    void Fail(const QString& kind, const QString& example);
    int Failures() const { return failures; }
    // Judges the reads left open; what failed, by kind, with the examples in order.
    const std::map<QString, QStringList>& Finish();
    // One line a kind: "FAILED KIND, N times; the first: EXAMPLE".
    QStringList Report();

private:
    struct Write {
        QString value, who;
        qint64 start, end;
        Fate fate;
        bool certain;
    };
    enum Verdict { Fine, Open, Early, Unacknowledged, Stale };  // the last weighs most
    Verdict judge(const Read& read, QString& why) const;
    const Write* overwriting(const std::vector<size_t>& list, qint64 after, qint64 before) const;

    std::mutex mutex;
    std::atomic<qint64> clock{0};
    std::atomic<int> failures{0};
    std::vector<Write> writes;
    QHash<QString, std::vector<size_t>> byField;  // in order of start
    std::vector<Read> open;
    std::map<QString, QStringList> found;
};
