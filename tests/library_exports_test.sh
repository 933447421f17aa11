#!/bin/sh
# The article library carries its SONAME and exports nothing but its own classes and
# G::articleManager: everything else is hidden. Weak symbols (W, V, u) are vague-linkage copies
# of other libraries' inline code and type information, which unoptimised builds emit; they are
# not this library's own.
set -eu
lib="$1"
soname=$(readelf -d "$lib" | sed -n 's/.*Library soname: \[\(.*\)\].*/\1/p')
if [ "$soname" != "libArticleManager.so.1" ]; then
    echo "SONAME is '$soname', expected libArticleManager.so.1"
    exit 1
fi
exported='Article|ArticleBrief|ArticleSeeker|ArticleEditor|ArticleBarcodeManager|BarcodePrefixDBManager|DeptDBManager|DeptFirmwareInitializer|TaxRatesManager|CurrentMaxPLUManager|ArticleManager|XCLASS_gArticleManager'
strays=$(nm -D --defined-only "$lib" | awk '$2 !~ /^[WVu]$/ {print $3}' | c++filt |
    grep -v -E "^(typeinfo (name )?for |vtable for |VTT for |non-virtual thunk to |virtual thunk to )?(${exported})(::|$)" |
    grep -v -E '^G::articleManager$' |
    grep -v -E '^(_init|_fini|_edata|_end|__bss_start)$' |
    grep -v -E '^__odr_asan' || true)
if [ -n "$strays" ]; then
    echo "symbols exported beyond the library's classes:"
    echo "$strays"
    exit 1
fi
echo "SONAME $soname; exports limited to the library's classes"
