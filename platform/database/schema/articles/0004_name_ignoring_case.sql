-- Article names ignoring the case of ASCII letters, so that looking an article up by its name
-- (the check before every add) is a seek rather than a scan of the catalogue. NOCASE is built
-- into SQLite, so every connection, plain ones too, keeps this index alike.
CREATE INDEX IF NOT EXISTS Article_name_nocase ON Article (art_name COLLATE NOCASE);
