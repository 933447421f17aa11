-- A trigram index of article names and main barcodes, so that the incremental search and the
-- name-prefix search find rare patterns without reading every article. It holds no positions
-- (detail=none) to stay small: the database layer verifies every candidate against the exact
-- LIKE semantics, so the index only has to find a superset. Triggers keep it in step with
-- every writer of the Article table, including plain SQLite connections.

CREATE VIRTUAL TABLE IF NOT EXISTS ArticleSearch USING fts5 (
    art_name, main_barcode,
    content = 'Article', content_rowid = 'id', tokenize = 'trigram', detail = 'none');

CREATE TRIGGER IF NOT EXISTS ArticleSearch_insert AFTER INSERT ON Article BEGIN
    INSERT INTO ArticleSearch (rowid, art_name, main_barcode)
        VALUES (new.id, new.art_name, new.main_barcode);
END;

CREATE TRIGGER IF NOT EXISTS ArticleSearch_delete AFTER DELETE ON Article BEGIN
    INSERT INTO ArticleSearch (ArticleSearch, rowid, art_name, main_barcode)
        VALUES ('delete', old.id, old.art_name, old.main_barcode);
END;

CREATE TRIGGER IF NOT EXISTS ArticleSearch_update AFTER UPDATE OF id, art_name, main_barcode ON Article
BEGIN
    INSERT INTO ArticleSearch (ArticleSearch, rowid, art_name, main_barcode)
        VALUES ('delete', old.id, old.art_name, old.main_barcode);
    INSERT INTO ArticleSearch (rowid, art_name, main_barcode)
        VALUES (new.id, new.art_name, new.main_barcode);
END;

INSERT INTO ArticleSearch (ArticleSearch) VALUES ('rebuild');
