#pragma once

#include <string>

/// Kinds of file the program knows, by extension.
enum FileType : int {
    fileTypeUnknown = 0,
    fileTypeBmp = 1,  ///< .bmp, .dib
    fileTypeTiff = 2, ///< .tif, .tiff
    fileTypeJpeg = 3, ///< .jpg, .jpe, .jpeg
    fileTypeTga = 4,  ///< .tga
    fileTypePict = 5, ///< .pct, .pic, .pict
    fileTypeZmp = 6,  ///< a flat Zmap image
    fileTypePng = 7,
    fileTypeRpc = 8,
    fileTypeZmq = 9, ///< a panorama Zmap image
    fileTypeMov = 10,
    fileType3ds = 11,
    fileTypeDxf = 12,
    fileTypeMan = 13,
    fileTypeThf = 14,
    fileTypeSkp = 15,
};

/// The kind of file `path` names by its extension, compared without case; 0 (unknown)
/// for any extension not in the table, or none.
int fileType(const std::wstring& path);
