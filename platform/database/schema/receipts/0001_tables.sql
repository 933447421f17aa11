-- The receipt database: lines of the receipts sold, which refer to articles.

CREATE TABLE IF NOT EXISTS ReceiptLineEvent (
    id         INTEGER PRIMARY KEY AUTOINCREMENT,
    receipt_no INTEGER NOT NULL,
    line_no    INTEGER NOT NULL,
    article_id INTEGER NOT NULL,
    plu_no     INTEGER NOT NULL,
    quantity   INTEGER NOT NULL DEFAULT 1000,
    price      INTEGER NOT NULL DEFAULT 0,
    created_at TEXT NOT NULL DEFAULT (strftime('%Y-%m-%dT%H:%M:%S', 'now'))
);

CREATE INDEX IF NOT EXISTS ReceiptLineEvent_receipt ON ReceiptLineEvent (receipt_no, line_no);
