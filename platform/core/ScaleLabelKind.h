#pragma once

// What the value of a special (in-store) barcode means; the number is what the
// SpecialBarcodePrefixes table stores in "weight_or_price".
enum SpecialBarcodeSubjectType {
    SPECIAL_BARCODE_WEIGHT = 0,  // grams (factory prefixes "23", "24")
    SPECIAL_BARCODE_PRICE = 1,   // minor currency units (factory prefixes "27", "29")
    SPECIAL_BARCODE_NONE = 2,    // no kind; as a filter: every prefix
};
