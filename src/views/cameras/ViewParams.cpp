#include "views/cameras/ViewParams.h"

double unitMillimetres(std::int32_t code) {
    switch (code) {
    case 1:
        return 0.001;
    case 2:
        return 1;
    case 3:
        return 10;
    case 4:
        return 1000;
    case 5:
        return 1000000;
    case 6:
        return 0.0254;
    case 7:
        return 25.4;
    case 8:
        return 304.79999999999995; // twelve inches as the double product 12 * 25.4
    default:
        return 1;
    }
}
