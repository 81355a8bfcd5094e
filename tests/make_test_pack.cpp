// Writes the generated test pack and a sample picture:
//   nubex-test-pack RESOURCE_DIRECTORY SAMPLE.png
#include <iostream>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "support/test_pack.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: nubex-test-pack RESOURCE_DIRECTORY SAMPLE.png\n";
        return 2;
    }
    try {
        testing_support::writeClassifierPack(argv[1]);
        // A picture with a strong green and a little red: Drinks and Smoke both score.
        cv::Mat sample(240, 320, CV_8UC3, cv::Scalar(20, 170, 90));
        cv::circle(sample, {160, 120}, 60, cv::Scalar(0, 90, 250), cv::FILLED);
        if (!cv::imwrite(argv[2], sample)) throw std::runtime_error(std::string("cannot write ") + argv[2]);
    } catch (const std::exception& error) {
        std::cerr << "nubex-test-pack: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
