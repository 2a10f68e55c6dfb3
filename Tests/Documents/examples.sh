# shellcheck shell=bash
# What the examples of the documents find on their machine besides kivcs2: programs that pipelines begin and end with,
# and the files that they name. The comments "setup" of a page call the functions.
set -o pipefail
mkdir -p bin
printf '#!/bin/sh\nexit 0\n' >bin/ffprobe

producer() { cat produced; }
player() { cat >/dev/null; }
slow-consumer() { cat >/dev/null; }
# Only tests have a controller: two fans and four cores.
cat >bin/sudo <<'END'
#!/bin/bash
[[ $1 != kivcs2 ]] || set -- "${kivcs2_folder%/recorded}/kivcs2_with_controller" "${@:2}"
exec "$@"
END
chmod +x bin/*

# Interrupts the commands in the background as soon as they handle it, and prints their exit codes.
end_jobs() {
    local job handled tries
    for job in $(jobs -p); do
        for ((tries = 0; tries < 100; ++tries)); do
            handled=$(sed -n 's/^Sig\(Cgt\|Blk\):\t/0x/p' "/proc/$job/status" 2>/dev/null | paste -s -d '|')
            (((${handled:-0x4000}) & 0x4000)) && break
            sleep 0.1
        done
        kill "$job" 2>/dev/null
        wait "$job"
        echo $?
    done
}

# Offers a service in the background, and waits until the network has accepted it.
offered() {
    kivcs2 services publish "$@" >offered &
    until [[ -s offered ]]; do sleep 0.1; done
}

# A file of wrapped ancillary data (SMPTE ST 436) with a caption packet on line 9.
captured436M() {
    printf '\0\x01\0\x09\x01\x04\0\x56\0\0\0\x56\0\0\0\x01'
    kivcs2 cdp build --field1 942c --binary | packet
}
# The CDP on the input as an ancillary packet of 8-bit words.
packet() { python3 -c '
import sys
words = b"\x61\x01\x52" + sys.stdin.buffer.read()
sys.stdout.buffer.write(words + bytes([sum(words) & 255]))'; }
# A row of 1920 samples of v210 with such a packet among its luma samples.
capturedV210() { kivcs2 cdp build --field1 942c --binary | packet | python3 -c '
import struct, sys
words = [byte | (256 if bin(byte).count("1") % 2 else 512) for byte in sys.stdin.buffer.read()[:-1]]
total = sum(word & 511 for word in words) & 511
luma = [0, 1023, 1023, *words, total | (0 if total & 256 else 512)]
luma += [64] * (1920 - len(luma))
grey = 512
for at in range(0, 1920, 6):
    a, b, c, d, e, f = luma[at:at + 6]
    for low, middle, high in ((grey, a, grey), (b, grey, c), (grey, d, grey), (e, grey, f)):
        sys.stdout.buffer.write(struct.pack("<I", low | middle << 10 | high << 20))'; }

# The files of the examples in the help of the words.
words_files() {
    cp Examples/captions.scc programme.scc
    head -c 921600 /dev/zero | tee in.raw in.rgba >capture.bin
    printf '\xef\xbb\xbftext\n' >marked.txt
    echo text >text.txt
    kivcs2 caption convert programme.scc programme.mcc
    kivcs2 frame bars in.v210 --video "625i25 10 Bit"
    kivcs2 frame bars in.2vuy --video 625i25
}
