-- Indexes for the lookups the library makes. PLU and name are indexed by their UNIQUE
-- constraints and the article id is the row id.

CREATE INDEX IF NOT EXISTS ArticleBarcode_barcode ON ArticleBarcode (barcode);
CREATE INDEX IF NOT EXISTS ArticleBarcode_article ON ArticleBarcode (article_id, is_main);
CREATE INDEX IF NOT EXISTS ArticleBarcode_is_main ON ArticleBarcode (is_main);
CREATE INDEX IF NOT EXISTS Article_main_barcode ON Article (main_barcode);
CREATE INDEX IF NOT EXISTS Article_link_plu_no ON Article (link_plu_no);
CREATE INDEX IF NOT EXISTS NotepadCategoryItem_category ON NotepadCategoryItem (category_id);
