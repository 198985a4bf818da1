#ifndef NORVA_BLOB_H
#define NORVA_BLOB_H

// One long wide text, used for the blob-typed columns.
struct _BLOB {
    wchar_t* data;

    _BLOB();
    explicit _BLOB(const wchar_t* text);
    _BLOB(const _BLOB& other);
    _BLOB& operator=(const _BLOB& other);
    ~_BLOB();
};

#endif
