#pragma once

#include <QList>
#include <QString>

#include "ArticleManagerGlobal.h"
#include "DBManager.h"
#include "ScaleLabelKind.h"
#include "ScaleLabelPrefix.h"

// Keeps the SpecialBarcodePrefixes table: the prefixes that mark in-store labels and the kind
// of value each carries (0 weight, 1 price). No lock of its own; there is no Uninitialize.
//
// Results: 0 done, 4 database error, 6 not initialised.
class ARTICLEMANAGER_EXPORT BarcodePrefixDBManager {
public:
    BarcodePrefixDBManager();
    ~BarcodePrefixDBManager();

    BarcodePrefixDBManager(const BarcodePrefixDBManager&) = delete;
    BarcodePrefixDBManager& operator=(const BarcodePrefixDBManager&) = delete;

    // Binds the manager to the article database. False for a null database (nothing logged)
    // or a missing table (logged).
    bool Initialize(DBManager* db);

    // Stores a prefix entry (replacing the entry of that id); kind 2 stores no kind.
    int AddPrefix(unsigned int id, const QString& prefix, SpecialBarcodeSubjectType type);
    int AddPrefix(const SpecialBarcodePrefix& entry);
    // Deletes the entry of that id.
    int RemovePrefixEntry(int id);
    // Clears the table and adds the factory entries (1, "27", 1), (2, "29", 1), (6, "23", 0),
    // (7, "24", 0); false at the first step that fails.
    bool ResetTable();
    // Appends new records (owned by the caller) for the stored entries of one kind, or all for
    // kind 2, in row order; `out` keeps what it held. A record's kind is the stored one.
    int LoadPrefixesByType(const SpecialBarcodeSubjectType& type,
                           QList<SpecialBarcodePrefix*>& out);
    // The kind stored for exactly this prefix text: `type` is 0 or 1, or 2 when the prefix is
    // not stored. Returns false only when the query failed (type 2 then too).
    bool CheckSpecialBarcodeSubjectType(const QString& barcode, SpecialBarcodeSubjectType& type);

private:
    bool initialized;
    DBManager* db;
    DBTable* table;
};
