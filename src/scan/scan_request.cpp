#include "scan/scan_request.h"

#include "scan/result_document.h"

namespace Scan {

std::string scanImage(const ScanArguments& arguments) {
    ResultDocument document;
    std::string errorText;
    if (arguments.image == nullptr) errorText += "Invalid image data...";
    if (arguments.width < 1 || arguments.height < 1) errorText += "\tInvalid image dimension/s...";
    if (errorText.empty()) errorText += "\tNo category provided for scanning...";
    document.writeImageSize(arguments.width, arguments.height);
    document.writeErrorText(errorText);
    document.writeVerdict(errorText.empty());
    return document.finish();
}

}  // namespace Scan
