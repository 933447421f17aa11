#include "ArticleBarcodes.h"

ArticleBarcodes::ArticleBarcodes(unsigned int articleId) : articleId(articleId) {}

ArticleBarcodes::ArticleBarcodes(const ArticleBarcodes& other) : articleId(other.articleId) {
    for (const Barcode* barcode : other.barcodes) {
        barcodes.append(new Barcode(*barcode));
    }
}

ArticleBarcodes& ArticleBarcodes::operator=(const ArticleBarcodes& other) {
    if (this != &other) {
        ArticleBarcodes copy(other);
        Clear();
        articleId = copy.articleId;
        barcodes.swap(copy.barcodes);
    }
    return *this;
}

ArticleBarcodes::~ArticleBarcodes() {
    Clear();
}

const Barcode* ArticleBarcodes::GetMainBarcode() const {
    for (const Barcode* barcode : barcodes) {
        if (barcode->IsMain()) {
            return barcode;
        }
    }
    return nullptr;
}

void ArticleBarcodes::Clear() {
    qDeleteAll(barcodes);
    barcodes.clear();
}
