#pragma once

#include <QByteArray>
#include <QString>
#include <memory>

// Feeds arbitrary bytes to the string-taking entry points of the article library on a seeded
// catalogue, and checks after each input what the library may not do with hostile text:
//  - a read changes no row of any table, and no table or index comes or goes;
//  - a write changes only the rows the operation names, and only as asked;
//  - DBManager::Execute is handed exactly the statement the operation builds;
//  - every answer agrees with the stored rows, whatever the text holds: quotes, SQL, NUL, lone
//    surrogates (compared as the UTF-8 the database stores of it);
//  - the price-list reader reads back what the price-list writer wrote.
//
// The first byte of an input picks the operation (low 7 bits) and whether the rest is UTF-8 or
// raw UTF-16 (top bit: lone surrogates, which no UTF-8 decoder produces). The second byte is a
// small number some operations take: which article, barcode row or prefix entry, and a flag.
// The rest is the text, NULs included.
//
// It starts the process's one article manager, so a process makes one of these.
class HostileInput {
public:
    // Creates the catalogue in `folder` (which must outlive this object) and starts the library
    // on it the way the register does.
    explicit HostileInput(const QString& folder);
    ~HostileInput();

    HostileInput(const HostileInput&) = delete;
    HostileInput& operator=(const HostileInput&) = delete;

    // Empty when the catalogue is ready, otherwise why it is not.
    QString StartError() const;
    // Runs one input; empty when every check held, otherwise what went wrong. The catalogue is
    // as it was seeded afterwards either way.
    QString Check(const QByteArray& input);

private:
    class Private;
    std::unique_ptr<Private> d;
};
