#ifndef NORVA_BLOB_H
#define NORVA_BLOB_H

/// One long wide text, used for the blob-typed columns.
struct _BLOB {
    wchar_t* data;  ///< the NUL-terminated text, owned; may be null

    /// Holds no text (`data` null).
    _BLOB();
    /// Holds a copy of `text`.
    explicit _BLOB(const wchar_t* text);
    /// Deep copy.
    _BLOB(const _BLOB& other);
    /// Deep copy.
    _BLOB& operator=(const _BLOB& other);
    /// Frees the text.
    ~_BLOB();
};

#endif
