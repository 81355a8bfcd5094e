"""Where the engine's text scans spend their CPU time, from a `perf record`
of the engine-text run: the inference library (OpenVINO's libraries, its
JIT-compiled kernels and TBB) against the engine's own code (libNubexEngine
and the OpenCV it calls to resize, crop and find contours). What cannot be
told apart by library (the C and C++ runtimes, the kernel) and what belongs
to the benchmark's own process (Python, decoding the pictures) is listed
apart.

usage: engine_share.py PERF_DATA
"""

import subprocess
import sys

INFERENCE = ("[JIT]", "libopenvino", "libtbb")
ENGINE = ("libNubexEngine", "libopencv_core", "libopencv_imgproc")
RUNTIME = ("libc.so", "libstdc++", "libm.so", "libgcc_s", "[kernel", "ld-linux", "[vdso]")


def shares(perf_data):
    report = subprocess.run(["perf", "report", "-i", perf_data, "--sort", "dso", "--stdio"], capture_output=True,
                            text=True, check=True).stdout
    groups = {"inference": 0.0, "engine": 0.0, "runtime": 0.0, "benchmark": 0.0}
    for line in report.splitlines():
        fields = line.split(None, 1)
        if line.startswith("#") or len(fields) < 2 or not fields[0].endswith("%"):
            continue
        percent, library = float(fields[0].rstrip("%")), fields[1].strip()
        if library.startswith(INFERENCE):
            groups["inference"] += percent
        elif library.startswith(ENGINE):
            groups["engine"] += percent
        elif library.startswith(RUNTIME):
            groups["runtime"] += percent
        else:
            groups["benchmark"] += percent
    return groups


def main():
    groups = shares(sys.argv[1])
    inside = groups["inference"] + groups["engine"]
    print(f"engine share outside inference: {100 * groups['engine'] / inside:.1f}% "
          f"(engine {groups['engine']:.1f}% and inference {groups['inference']:.1f}% of the samples; "
          f"C/C++ runtime and kernel {groups['runtime']:.1f}%, benchmark process {groups['benchmark']:.1f}%; "
          f"counting all of the runtime as the engine's: "
          f"{100 * (groups['engine'] + groups['runtime']) / (inside + groups['runtime']):.1f}%)")


if __name__ == "__main__":
    main()
