#include "file/FileType.h"

#include "core/FilePath.h"

int fileType(const std::wstring& path) {
    static const std::wstring extensions =
        L".bmp/.dib/.tif/.tiff/.jpg/.jpe/.jpeg/.tga/.pct/.pic/"
        L".pict/.zmp/.png/.rpc/.zmq/.mov/.3ds/.dxf/.man/.thf/.skp";
    // The type of each entry of the list, in order.
    static constexpr int types[] = {
        fileTypeBmp,  fileTypeBmp, fileTypeTiff, fileTypeTiff, fileTypeJpeg, fileTypeJpeg,
        fileTypeJpeg, fileTypeTga, fileTypePict, fileTypePict, fileTypePict, fileTypeZmp,
        fileTypePng,  fileTypeRpc, fileTypeZmq,  fileTypeMov,  fileType3ds,  fileTypeDxf,
        fileTypeMan,  fileTypeThf, fileTypeSkp};
    const int index = analyzeFileType(path, extensions);
    return index >= 1 && index <= static_cast<int>(std::size(types)) ? types[index - 1]
                                                                     : fileTypeUnknown;
}
