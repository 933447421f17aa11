-- The article database: the register's catalogue and the tables that refer to it.

CREATE TABLE IF NOT EXISTS Article (
    id                 INTEGER PRIMARY KEY AUTOINCREMENT,
    plu_no             INTEGER NOT NULL UNIQUE,
    art_name           VARCHAR(40) NOT NULL UNIQUE,
    tax_rate_no        INTEGER NOT NULL DEFAULT 1,
    dept_no            INTEGER NOT NULL DEFAULT 1,
    quantity_precision INTEGER NOT NULL DEFAULT 0,
    unit_no            INTEGER NOT NULL DEFAULT 1,
    sale_bloc          BOOLEAN NOT NULL DEFAULT 0,
    main_barcode       VARCHAR(20) NOT NULL DEFAULT '',
    price              INTEGER NOT NULL DEFAULT 0,
    is_pack            BOOLEAN NOT NULL DEFAULT 0,
    disc_sur_block     BOOLEAN NOT NULL DEFAULT 0,
    free_price_allow   BOOLEAN NOT NULL DEFAULT 0,
    on_handy_list      BOOLEAN NOT NULL DEFAULT 0,
    scale_no           INTEGER NOT NULL DEFAULT 0,
    link_plu_no        INTEGER NOT NULL DEFAULT 0
);

-- One main and any number of additional barcodes per article. Not unique: a barcode shared by
-- two articles is a data error the seeker reports, so the table must be able to hold it.
CREATE TABLE IF NOT EXISTS ArticleBarcode (
    id         INTEGER PRIMARY KEY AUTOINCREMENT,
    article_id INTEGER NOT NULL,
    barcode    VARCHAR(20) NOT NULL,
    is_main    BOOLEAN NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS Dept (
    dept_id             INTEGER PRIMARY KEY,
    dept_name           VARCHAR(40) NOT NULL DEFAULT '',
    is_discount_blocked BOOLEAN NOT NULL DEFAULT 0,
    is_order_printer    BOOLEAN NOT NULL DEFAULT 0,
    max_discount        INTEGER NOT NULL DEFAULT 10000,
    max_surcharge       INTEGER NOT NULL DEFAULT 10000
);

-- Rate values in hundredths of a percent; 65535 marks a rate that is not in use.
CREATE TABLE IF NOT EXISTS TaxRates (
    tax_rate_id   INTEGER PRIMARY KEY,
    tax_rate_name VARCHAR(8) NOT NULL DEFAULT '',
    tax_rate_val  INTEGER NOT NULL DEFAULT 65535
);

-- Prefixes of in-store labels; weight_or_price 0 marks weight, 1 price, NULL no kind.
CREATE TABLE IF NOT EXISTS SpecialBarcodePrefixes (
    id              INTEGER PRIMARY KEY,
    prefix          VARCHAR(13) NOT NULL,
    weight_or_price BOOLEAN
);

-- The operator's quick-pick lists: categories and the articles (by PLU) in them.
CREATE TABLE IF NOT EXISTS NotepadHandyListCategory (
    id       INTEGER PRIMARY KEY,
    cat_name VARCHAR(40) NOT NULL DEFAULT '',
    position INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS NotepadCategoryItem (
    id          INTEGER PRIMARY KEY,
    category_id INTEGER NOT NULL,
    plu_no      INTEGER NOT NULL,
    position    INTEGER NOT NULL DEFAULT 0
);

-- Units of measure of the payment layer.
CREATE TABLE IF NOT EXISTS Units (
    unit_no   INTEGER PRIMARY KEY,
    unit_name VARCHAR(8) NOT NULL
);

INSERT OR IGNORE INTO Units (unit_no, unit_name) VALUES
    (1, 'szt.'),
    (2, 'kg'),
    (3, 'l'),
    (4, 'm'),
    (5, 'op.');
