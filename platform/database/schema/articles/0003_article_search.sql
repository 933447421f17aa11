-- A trigram index of article names and main barcodes, so that the incremental search and the
-- name-prefix search find rare patterns without reading every article. It holds no positions
-- (detail=none) to stay small: the database layer verifies every candidate against the exact
-- LIKE semantics, so the index only has to find a superset.

CREATE VIRTUAL TABLE IF NOT EXISTS ArticleSearch USING fts5 (
    art_name, main_barcode,
    content = 'Article', content_rowid = 'id', tokenize = 'trigram', detail = 'none');

-- Articles written since the index was last brought up to date. The triggers only note them
-- (FTS5 flushes its buffer at every statement, so indexing row by row would make a price list
-- import ten times slower); the database layer folds the notes into the index in one go
-- before a search and when a transaction commits. A row holds the values the index has for
-- the article (indexed = 1), or none when the index does not have it yet. Plain SQLite
-- connections keep it too, since triggers are part of the file.
CREATE TABLE IF NOT EXISTS ArticleSearchPending (
    id           INTEGER PRIMARY KEY,
    indexed      BOOLEAN NOT NULL,
    art_name     TEXT,
    main_barcode TEXT
);

-- Only the first note of an article counts until the next fold: it holds what the index has.
-- (Written with NOT EXISTS rather than OR IGNORE: a trigger's conflict clause gives way to
-- the one of the statement that fired it, such as an upsert.)
CREATE TRIGGER IF NOT EXISTS ArticleSearch_insert AFTER INSERT ON Article BEGIN
    INSERT INTO ArticleSearchPending (id, indexed)
        SELECT new.id, 0 WHERE NOT EXISTS (SELECT 1 FROM ArticleSearchPending WHERE id = new.id);
END;

CREATE TRIGGER IF NOT EXISTS ArticleSearch_delete AFTER DELETE ON Article BEGIN
    INSERT INTO ArticleSearchPending (id, indexed, art_name, main_barcode)
        SELECT old.id, 1, old.art_name, old.main_barcode
        WHERE NOT EXISTS (SELECT 1 FROM ArticleSearchPending WHERE id = old.id);
END;

CREATE TRIGGER IF NOT EXISTS ArticleSearch_update AFTER UPDATE OF id, art_name, main_barcode ON Article
BEGIN
    INSERT INTO ArticleSearchPending (id, indexed, art_name, main_barcode)
        SELECT old.id, 1, old.art_name, old.main_barcode
        WHERE NOT EXISTS (SELECT 1 FROM ArticleSearchPending WHERE id = old.id);
    INSERT INTO ArticleSearchPending (id, indexed)
        SELECT new.id, 0 WHERE NOT EXISTS (SELECT 1 FROM ArticleSearchPending WHERE id = new.id);
END;

INSERT INTO ArticleSearch (ArticleSearch) VALUES ('rebuild');
