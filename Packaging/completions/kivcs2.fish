# Made by kivcs2 generate completion; changes belong into the words themselves.
set -g __kivcs2_places 'tc' 'tc show' 'tc add' 'tc sub' 'tc diff' 'tc convert' 'tc bcd' 'tc date' 'caption' 'caption info' 'caption show' 'caption at' 'caption decode' 'caption convert' 'caption verify' 'caption play' 'caption monitor' 'cdp' 'cdp parse' 'cdp build' 'cdp find' 'format' 'rate' 'frame' 'frame info' 'frame convert' 'frame scale' 'frame deinterlace' 'frame clear' 'frame bars' 'frame png' 'audio' 'audio weave' 'audio code' 'audio describe' 'audio convert' 'codec' 'codec list' 'codec show' 'codec unpack' 'curve' 'curve list' 'curve plot' 'curve png' 'curve run' 'crc' 'str' 'str detect' 'str convert' 'json' 'pipe' 'shm' 'shm show' 'shm find' 'shm create' 'shm attach' 'shm free' 'sensors' 'sensors show' 'sensors watch' 'run' 'sys' 'sys show' 'sys watch' 'doctor' 'services' 'services publish' 'services browse' 'services types' 'services first' 'services monitor' 'net' 'net listen' 'net recv' 'net send' 'status' 'generate' 'generate man' 'generate completion' 'generate markdown' 'generate json'
set -g __kivcs2_takes 'tc show --rate' 'tc add --rate' 'tc sub --rate' 'tc diff --rate' 'tc convert --rate' 'tc convert --to' 'tc bcd --rate' 'tc date --rate' 'caption info --rate' 'caption info --field' 'caption show --rate' 'caption show --field' 'caption show --service' 'caption show --from' 'caption show --to' 'caption at --rate' 'caption at --field' 'caption at --service' 'caption convert --rate' 'caption convert --field' 'caption convert --to' 'caption convert --mcc-version' 'caption convert --service' 'caption convert --time-zero' 'caption convert --to-rate' 'caption convert --to-counting' 'caption convert --from' 'caption convert --until' 'caption convert --offset' 'caption verify --rate' 'caption verify --field' 'caption verify --most' 'caption verify --against' 'caption play --rate' 'caption play --field' 'caption play --interface' 'caption play --payload-type' 'caption play --line' 'caption play --ttl' 'caption play --speed' 'caption monitor --interface' 'caption monitor --service' 'caption monitor --to' 'caption monitor --rate' 'caption monitor --payload-type' 'caption monitor --window' 'caption monitor --for' 'caption monitor --silence' 'cdp parse --hex' 'cdp build --field1' 'cdp build --field2' 'cdp build --sequence' 'cdp build --rate' 'cdp build -o' 'cdp build --output' 'cdp find --in' 'cdp find --words' 'cdp find --width' 'cdp find --service' 'frame info --video' 'frame info --width' 'frame info --height' 'frame info --format' 'frame info --row-bytes' 'frame info --frame' 'frame info --matrix' 'frame convert --video' 'frame convert --width' 'frame convert --height' 'frame convert --format' 'frame convert --row-bytes' 'frame convert --frame' 'frame convert --matrix' 'frame convert --to' 'frame scale --video' 'frame scale --width' 'frame scale --height' 'frame scale --format' 'frame scale --row-bytes' 'frame scale --frame' 'frame scale --matrix' 'frame scale --size' 'frame deinterlace --video' 'frame deinterlace --width' 'frame deinterlace --height' 'frame deinterlace --format' 'frame deinterlace --row-bytes' 'frame deinterlace --frame' 'frame deinterlace --matrix' 'frame clear --video' 'frame clear --width' 'frame clear --height' 'frame clear --format' 'frame clear --frames' 'frame clear --matrix' 'frame clear --colour' 'frame bars --video' 'frame bars --width' 'frame bars --height' 'frame bars --format' 'frame bars --frames' 'frame bars --matrix' 'frame bars --pattern' 'frame png --video' 'frame png --width' 'frame png --height' 'frame png --format' 'frame png --row-bytes' 'frame png --frame' 'frame png --matrix' 'audio weave --samples' 'audio code --encoding' 'audio code --sample-rate' 'audio code --channels' 'audio code --bytes' 'audio code --used' 'audio code --data-type' 'audio code --data-stream' 'audio code --endian' 'audio code --alignment' 'audio convert --input' 'audio convert --channels' 'audio convert --bits' 'audio convert --channel' 'codec show --format' 'curve png --side' 'curve run --rate' 'curve run --frames' 'str convert -o' 'str convert --output' 'str convert --from' 'str convert --to' 'pipe --size' 'pipe --chunk' 'pipe --mode' 'shm attach -w' 'shm attach --write' 'shm attach -r' 'shm attach --read' 'shm attach --offset' 'shm attach --length' 'sensors watch --every' 'sensors watch --count' 'run --stdout' 'run --stderr' 'run --timeout' 'sys watch --every' 'sys watch --count' 'services publish --domain' 'services publish --text' 'services browse --domain' 'services types --domain' 'services first --domain' 'services first --timeout' 'services monitor --domain' 'services monitor --timeout' 'services monitor --count' 'net listen --count' 'net listen --timeout' 'net recv --count' 'net recv --timeout' 'net send --count' 'net send --size' 'net send --rate' 'net send --ttl'

function __kivcs2_list_codecs
    printf '%s\n' 'DVCPRO 25' 'DV PAL' 'DV NTSC' 'DVCPRO50 PAL' 'DVCPRO50 NTSC' 'IMX30 PAL' 'IMX30 NTSC' 'IMX40 PAL' 'IMX40 NTSC' 'IMX50 PAL' 'IMX50 NTSC' 'Photo JPEG' 'ProRes 422' 'ProRes 422 (HQ)' 'ProRes 422 (LT)' 'ProRes 422 (PROXY)' 'DVCPRO HD 1080i50' 'DVCPRO HD 1080i60' 'DVCPRO HD 720p50' 'DVCPRO HD 720p60' 'Uncompressed 8-bit' 'Uncompressed 10-bit' 'DNxHD'
end

function __kivcs2_list_curves
    printf '%s\n' 'Linear' 'QuadraticIn' 'QuadraticOut' 'QuadraticInOut' 'CubicIn' 'CubicOut' 'CubicInOut' 'ExpIn' 'ExpOut' 'ExpInOut' 'SinIn' 'SinOut' 'SinInOut'
end

function __kivcs2_list_encodings
    printf '%s\n' 'auto' 'ascii' 'filesystem' 'utf8' 'utf16be' 'utf16le' 'utf32be' 'utf32le' 'latin1'
end

function __kivcs2_list_frame_rates
    printf '%s\n' '23.98' '24' '25' '29.97' '30' '50' '59.94' '60'
end

function __kivcs2_list_pixel_formats
    printf '%s\n' 'v210' '2vuy' 'yuvs' 'rgba' 'bgra' 'argb' 'rgb'
end

function __kivcs2_list_rates
    printf '%s\n' '23.98' '24' '25' '29.97df' '29.97ndf' '30' '50' '59.94df' '59.94ndf' '60'
end

function __kivcs2_list_sample_formats
    printf '%s\n' 'u8' 's8' 's16le' 's16be' 's24le' 's24be' 's24_32le' 's24_32be' 's32le' 's32be'
end

function __kivcs2_list_services
    printf '%s\n' 'CC1' 'CC2' 'CC3' 'CC4' 'T1' 'T2' 'T3' 'T4' 'S1' 'S2' 'S3' 'S4' 'S5' 'S6'
end

function __kivcs2_list_statuses
    printf '%s\n' 'OK' 'ERR' 'PARAM_ERR' 'MEMORY_ERR' 'BUFFER_SIZE_ERR' 'DATA_ERR' 'NO_DATA_ERR' 'NOT_FOUND_ERR' 'TIMEOUT_ERR' 'FORMAT_ERR' 'EOF_ERR' 'OVERFLOW_ERR' 'CAPTION_ERR' 'HEADER_ERR' 'FRAME_RATE_ERR' 'WRITE_ERR' 'READ_ERR' 'OPEN_ERR' 'UNSUPPORTED_ERR' 'NO_ENTRY_ERR' 'NO_BUFFER_ERR' 'MUTEX_ERR' 'MUTEX_BUSY_ERR' 'FIFO_ERR' 'PIPE_ERR' 'PIXEL_FORMAT_ERR' 'THREAD_ERR' 'SEMAPHORE_ERR' 'SEMAPHORE_BUSY_ERR' 'SYSTEM_ERR' 'STATE_ERR' 'CONNECT_ERR' 'ADDRESS_ERR' 'SOCKET_ERR' 'SOCKET_INVALID_ERR' 'CONNECTION_CLOSED_ERR' 'MULTICAST_ADDRESS_ERR' 'BIND_ERR' 'BIND_ADDRESS_ERR' 'ACCEPT_ERR' 'PATH_ERR' 'NOT_LAUNCHABLE_ERR' 'FORK_ERR' 'NOT_PIPED_ERR' 'TASK_READ_ERR' 'TASK_RUNNING_ERR' 'TASK_NOT_RUNNING_ERR' 'TASK_WRITE_ERR' 'TASK_SERVER_ERR' 'INVALID_TIMECODE_ERR' 'VIDEO_FORMAT_ERR' 'NODE_LOCKED_ERR' 'NOT_WRITABLE_ERR'
end

function __kivcs2_list_video_formats
    printf '%s\n' '525i29.97 DV 8 Bit' '525i29.97 DV 10 Bit' '525i29.97 DV RGBA' '525i23.98 8 Bit' '525i23.98 10 Bit' '525i23.98 RGBA' '525i29.97 8 Bit' '525i29.97 10 Bit' '525i29.97 RGBA' '625i25 8 Bit' '625i25 10 Bit' '625i25 RGBA' '625i25 DV 8 Bit' '625i25 DV 10 Bit' '625i25 DV RGBA' '720p23.98 8 Bit' '720p23.98 10 Bit' '720p23.98 RGBA' '720p50 8 Bit' '720p50 10 Bit' '720p50 RGBA' '720p59.94 8 Bit' '720p59.94 10 Bit' '720p59.94 RGBA' '720p60 8 Bit' '720p60 10 Bit' '720p60 RGBA' '1080i29.97 HDV 8 Bit' '1080i29.97 HDV 10 Bit' '1080i29.97 HDV RGBA' '1080i30 HDV 8 Bit' '1080i30 HDV 10 Bit' '1080i30 HDV RGBA' '1080i25 HDV 8 Bit' '1080i25 HDV 10 Bit' '1080i25 HDV RGBA' '1080i25 8 Bit' '1080i25 10 Bit' '1080i25 RGBA' '1080i29.97 8 Bit' '1080i29.97 10 Bit' '1080i29.97 RGBA' '1080i30 8 Bit' '1080i30 10 Bit' '1080i30 RGBA' '1080p23.98 8 Bit' '1080p23.98 10 Bit' '1080p23.98 RGBA' '1080p24 8 Bit' '1080p24 10 Bit' '1080p24 RGBA' '1080PsF23.98 8 Bit' '1080PsF23.98 10 Bit' '1080PsF23.98 RGBA' '1080PsF24 8 Bit' '1080PsF24 10 Bit' '1080PsF24 RGBA' '1080p50a 8 Bit' '1080p50a 10 Bit' '1080p50a RGBA' '1080p59.94a 8 Bit' '1080p59.94a 10 Bit' '1080p59.94a RGBA' '1080p60a 8 Bit' '1080p60a 10 Bit' '1080p60a RGBA' '1080p50b 8 Bit' '1080p50b 10 Bit' '1080p50b RGBA' '1080p59.94b 8 Bit' '1080p59.94b 10 Bit' '1080p59.94b RGBA' '1080p60b 8 Bit' '1080p60b 10 Bit' '1080p60b RGBA'
end

function __kivcs2_list_word_forms
    printf '%s\n' '8bit-adf' '8bit' '10bit-adf' '10bit' '10bit-le-adf' '10bit-le'
end

# The words so far lead to a path of kivcs2's words; then the number of the positional that comes.
function __kivcs2_place
    set -l path
    set -l key
    set -l position 1
    for word in (commandline -opc)[2..-1]
        set -l here (string join -- ' ' $path $word)
        if set -q key[1]
            set key
        else if contains -- $here $__kivcs2_takes
            set key $word
        else if contains -- $here $__kivcs2_places
            set path $path $word
        else if not string match -q -- '-*' $word
            set position (math $position + 1)
        end
    end
    printf '%s\n' "$path" $position
end

# A path, and the numbers of the first and last positional where it is about those.
function __kivcs2_at
    set -l place (__kivcs2_place)
    test "$place[1]" = "$argv[1]"
    and begin
        test (count $argv) -eq 1
        or test $place[2] -ge $argv[2] -a $place[2] -le $argv[3]
    end
end

complete -c kivcs2 -f
complete -c kivcs2 -n "__kivcs2_at ''" -a tc -d 'Timecode: show, add, subtract, measure, convert, BCD, dates'
complete -c kivcs2 -n "__kivcs2_at ''" -a caption -d 'SCC and MCC caption files, and live captions over RTP'
complete -c kivcs2 -n "__kivcs2_at ''" -a cdp -d 'Caption distribution packets (SMPTE 334-2): parse, build, find'
complete -c kivcs2 -n "__kivcs2_at ''" -a format -d 'Video formats: the table, or one format'
complete -c kivcs2 -n "__kivcs2_at ''" -a rate -d 'Frame rates and how they count'
complete -c kivcs2 -n "__kivcs2_at ''" -a frame -d 'Raw frames: described, converted, made and shown'
complete -c kivcs2 -n "__kivcs2_at ''" -a audio -d 'Samples of video frames, format codes, raw PCM'
complete -c kivcs2 -n "__kivcs2_at ''" -a codec -d 'Codecs: names, four-character codes, sizes of frames'
complete -c kivcs2 -n "__kivcs2_at ''" -a curve -d 'Interpolation curves: table, plots, sequences'
complete -c kivcs2 -n "__kivcs2_at ''" -a crc -d 'CRC-32 (IEEE 802.3) of files'
complete -c kivcs2 -n "__kivcs2_at ''" -a str -d 'Text files: detect and convert encodings'
complete -c kivcs2 -n "__kivcs2_at ''" -a json -d 'Write keys and values as a JSON object'
complete -c kivcs2 -n "__kivcs2_at ''" -a pipe -d 'Pass standard input to standard output through a ring'
complete -c kivcs2 -n "__kivcs2_at ''" -a shm -d 'Shared memory segments (System V)'
complete -c kivcs2 -n "__kivcs2_at ''" -a sensors -d 'Fans, temperatures and keys of the machine\'s controller'
complete -c kivcs2 -n "__kivcs2_at ''" -a run -d 'Run a command through the task server'
complete -c kivcs2 -n "__kivcs2_at ''" -a sys -d 'Memory, version, processors and name of this machine'
complete -c kivcs2 -n "__kivcs2_at ''" -a doctor -d 'What this machine offers the library, and what is missing'
complete -c kivcs2 -n "__kivcs2_at ''" -a services -d 'Publish, list, find and watch services on the network'
complete -c kivcs2 -n "__kivcs2_at ''" -a net -d 'Send and receive over TCP, UDP and multicast, with a rate meter'
complete -c kivcs2 -n "__kivcs2_at ''" -a status -d 'What a status of the library means'
complete -c kivcs2 -n "__kivcs2_at ''" -a generate -d 'Manual pages, completions and tables of the words and options'
complete -c kivcs2 -n "__kivcs2_at ''" -a help -d 'The help of a word, as its --help prints it'
complete -c kivcs2 -n "__kivcs2_at 'tc'" -a show -d 'Digits, frame count, real time and BCD of a timecode'
complete -c kivcs2 -n "__kivcs2_at 'tc'" -a add -d 'Add timecodes, numbers of frames, or durations such as 90m and 1h30m'
complete -c kivcs2 -n "__kivcs2_at 'tc'" -a sub -d 'Subtract timecodes, numbers of frames, or durations'
complete -c kivcs2 -n "__kivcs2_at 'tc'" -a diff -d 'The difference of two timecodes, in frames and seconds'
complete -c kivcs2 -n "__kivcs2_at 'tc'" -a convert -d 'The same instant in another counting'
complete -c kivcs2 -n "__kivcs2_at 'tc'" -a bcd -d 'A timecode as a BCD word, or a BCD word (0x12345612) as a timecode'
complete -c kivcs2 -n "__kivcs2_at 'tc'" -a date -d 'The moment of a dated timecode, or the timecode of a moment (now, @SECONDS since 1970)'
complete -c kivcs2 -n "__kivcs2_at 'tc show'" -l rate -x -a '(__kivcs2_list_rates)' -d '23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60'
complete -c kivcs2 -n "__kivcs2_at 'tc add'" -l rate -x -a '(__kivcs2_list_rates)' -d '23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60'
complete -c kivcs2 -n "__kivcs2_at 'tc sub'" -l rate -x -a '(__kivcs2_list_rates)' -d '23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60'
complete -c kivcs2 -n "__kivcs2_at 'tc diff'" -l rate -x -a '(__kivcs2_list_rates)' -d '23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60'
complete -c kivcs2 -n "__kivcs2_at 'tc convert'" -l rate -x -a '(__kivcs2_list_rates)' -d '23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60'
complete -c kivcs2 -n "__kivcs2_at 'tc convert'" -l to -x -a '(__kivcs2_list_rates)' -d 'The rate to convert to'
complete -c kivcs2 -n "__kivcs2_at 'tc convert'" -l keep-digits -d 'Keep the digits, not the instant'
complete -c kivcs2 -n "__kivcs2_at 'tc bcd'" -l rate -x -a '(__kivcs2_list_rates)' -d '23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60'
complete -c kivcs2 -n "__kivcs2_at 'tc date'" -l rate -x -a '(__kivcs2_list_rates)' -d '23.98, 24, 25, 29.97[df|ndf], 30, 50, 59.94[df|ndf] or 60'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a info -d 'What a file holds, with every caption service in it'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a show -d 'Timecode, pairs, control codes in words, and text'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a at -d 'The pairs of one frame and what is on the screen (exit 1: none)'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a decode -d 'CEA-608 pairs in words'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a convert -d 'SCC and MCC to SCC, MCC, SRT or WebVTT; to the same kind it is a repair'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a verify -d 'Check a file and list every fault (exit 1: there are faults)'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a play -d 'Send a file in real time as a stream of ancillary data over RTP'
complete -c kivcs2 -n "__kivcs2_at 'caption'" -a monitor -d 'The captions of a stream of ancillary data over RTP, as they come'
complete -c kivcs2 -n "__kivcs2_at 'caption info' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'caption info'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Count at this rate instead of that of the file'
complete -c kivcs2 -n "__kivcs2_at 'caption info'" -l field -x -d 'The field of an SCC file\'s pairs, 1 or 2; without it the field of the codes'
complete -c kivcs2 -n "__kivcs2_at 'caption info'" -l strict -d 'Stop at the first fault'
complete -c kivcs2 -n "__kivcs2_at 'caption info'" -l both-tracks -d 'Of SCC words with 8 digits take the second track too, into the other field'
complete -c kivcs2 -n "__kivcs2_at 'caption show' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Count at this rate instead of that of the file'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l field -x -d 'The field of an SCC file\'s pairs, 1 or 2; without it the field of the codes'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l strict -d 'Stop at the first fault'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l both-tracks -d 'Of SCC words with 8 digits take the second track too, into the other field'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l keep-going -d 'Report lost lines, but end with the exit code of a complete file'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l captions -d 'The captions as a viewer sees them'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l service -x -a '(__kivcs2_list_services)' -d 'Only these services: CC1, T1, S1, or several with commas'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l from -x -d 'The first timecode to show'
complete -c kivcs2 -n "__kivcs2_at 'caption show'" -l to -x -d 'The last timecode to show'
complete -c kivcs2 -n "__kivcs2_at 'caption at' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'caption at'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Count at this rate instead of that of the file'
complete -c kivcs2 -n "__kivcs2_at 'caption at'" -l field -x -d 'The field of an SCC file\'s pairs, 1 or 2; without it the field of the codes'
complete -c kivcs2 -n "__kivcs2_at 'caption at'" -l strict -d 'Stop at the first fault'
complete -c kivcs2 -n "__kivcs2_at 'caption at'" -l both-tracks -d 'Of SCC words with 8 digits take the second track too, into the other field'
complete -c kivcs2 -n "__kivcs2_at 'caption at'" -l keep-going -d 'Report lost lines, but end with the exit code of a complete file'
complete -c kivcs2 -n "__kivcs2_at 'caption at'" -l service -x -a '(__kivcs2_list_services)' -d 'Only these services: CC1, T1, S1, or several with commas'
complete -c kivcs2 -n "__kivcs2_at 'caption convert' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Count at this rate instead of that of the file'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l field -x -d 'The field of an SCC file\'s pairs, 1 or 2; without it the field of the codes'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l strict -d 'Stop at the first fault'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l both-tracks -d 'Of SCC words with 8 digits take the second track too, into the other field'
complete -c kivcs2 -n "__kivcs2_at 'caption convert' 2 2" -F
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l to -x -a 'SCC MCC MCC1 MCC2 SRT WebVTT VTT' -d 'The kind to write; without it the kind of the target\'s ending'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l mcc-version -x -d 'MCC: 1 or 2; without it 1 from SCC, the source\'s from MCC'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l service -x -a '(__kivcs2_list_services)' -d 'SRT, WebVTT: the service to write; without it the first of CC1, S1 ... with captions'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l time-zero -x -d 'SRT, WebVTT: the timecode that is 00:00:00.000'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l to-rate -x -a '(__kivcs2_list_rates)' -d 'Write at this rate: every caption at the same moment'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l to-counting -x -a '(__kivcs2_list_rates)' -d 'Write under this numbering: every caption on the frame of the same number'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l from -x -d 'The first timecode of the source to convert'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l until -x -d 'The last timecode of the source to convert'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l offset -x -d 'Frames of the result to add to each frame; -25 is earlier'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l start-at-zero -d 'The frame of --from, without it the first of the file, becomes 00:00:00:00'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l keep-going -d 'Write the rest if lines are lost'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l sparse -d 'MCC from SCC: packets only on frames that have a pair'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l sdi -d 'MCC from SCC: a second service descriptor, language eng'
complete -c kivcs2 -n "__kivcs2_at 'caption convert'" -l fix-parity -d 'Give every pair odd parity; without it pairs are kept'
complete -c kivcs2 -n "__kivcs2_at 'caption verify' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'caption verify'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Count at this rate instead of that of the file'
complete -c kivcs2 -n "__kivcs2_at 'caption verify'" -l field -x -d 'The field of an SCC file\'s pairs, 1 or 2; without it the field of the codes'
complete -c kivcs2 -n "__kivcs2_at 'caption verify'" -l strict -d 'Stop at the first fault'
complete -c kivcs2 -n "__kivcs2_at 'caption verify'" -l both-tracks -d 'Of SCC words with 8 digits take the second track too, into the other field'
complete -c kivcs2 -n "__kivcs2_at 'caption verify'" -l most -x -d 'Rows of faults to show; without it 20 on a terminal, all elsewhere'
complete -c kivcs2 -n "__kivcs2_at 'caption verify'" -l fix-parity -d 'The source\'s pairs were given odd parity'
complete -c kivcs2 -n "__kivcs2_at 'caption verify'" -l against -r -F -d 'The SCC or MCC file it was made from'
complete -c kivcs2 -n "__kivcs2_at 'caption play' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Count at this rate instead of that of the file'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l field -x -d 'The field of an SCC file\'s pairs, 1 or 2; without it the field of the codes'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l strict -d 'Stop at the first fault'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l both-tracks -d 'Of SCC words with 8 digits take the second track too, into the other field'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l interface -x -d 'Reach a group through the interface of this address or name'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l payload-type -x -d 'RTP payload type'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l line -x -d 'The line that packets claim to be on'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l ttl -x -d 'Routers that a datagram to a group may pass, plus 1'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l speed -x -d 'Times the pace; time stamps stay those of real time'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l loop -d 'Begin again after the last frame'
complete -c kivcs2 -n "__kivcs2_at 'caption play'" -l no-timecode -d 'No ancillary timecode (SMPTE ST 12-2) for captions that have no time code'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l interface -x -d 'Join a group on the interface of this address or name'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l service -x -a '(__kivcs2_list_services)' -d 'Only these services: CC1, T1, S1, or several with commas'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l to -r -F -d 'Write the captions to this MCC file; - is standard output'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Count at this rate instead of the rate of the CDPs'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l payload-type -x -d 'Take only packets of this RTP payload type'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l window -x -d 'Packets that may wait for one that is missing'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l for -x -d 'End after this many seconds'
complete -c kivcs2 -n "__kivcs2_at 'caption monitor'" -l silence -x -d 'Alarm if no caption comes for this many seconds'
complete -c kivcs2 -n "__kivcs2_at 'cdp'" -a parse -d 'Decode a packet (exit 3: it has a fault)'
complete -c kivcs2 -n "__kivcs2_at 'cdp'" -a build -d 'Make a packet from CEA-608 pairs'
complete -c kivcs2 -n "__kivcs2_at 'cdp'" -a find -d 'List the packets in captured ancillary data (exit 1: none)'
complete -c kivcs2 -n "__kivcs2_at 'cdp parse' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'cdp parse'" -l hex -x -d 'The packet itself, in hexadecimal'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -l field1 -x -d 'Pair of field 1, four hexadecimal digits'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -l field2 -x -d 'Pair of field 2'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -l sequence -x -d 'Sequence number'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Frame rate of the packet'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -l sdi -d 'With a second service descriptor, language eng'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -l atom -d 'With a QuickTime atom header in front'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -l binary -d 'Write bytes, not hexadecimal text'
complete -c kivcs2 -n "__kivcs2_at 'cdp build'" -s o -l output -r -F -d 'Where to write; - is standard output'
complete -c kivcs2 -n "__kivcs2_at 'cdp find' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'cdp find'" -l in -x -a '291m 436m v210 rtp' -d '291m: ancillary packets; 436m: wrapped data; v210: rows of pixels; rtp: payloads (RFC 8331)'
complete -c kivcs2 -n "__kivcs2_at 'cdp find'" -l words -x -a '(__kivcs2_list_word_forms)' -d '291m: 8bit (default), 8bit-adf, 10bit (16-bit big-endian units), 10bit-adf, 10bit-le (little-endian), 10bit-le-adf'
complete -c kivcs2 -n "__kivcs2_at 'cdp find'" -l width -x -d 'v210: samples of a row; 720 is SD'
complete -c kivcs2 -n "__kivcs2_at 'cdp find'" -l captions -d 'The captions as a viewer sees them'
complete -c kivcs2 -n "__kivcs2_at 'cdp find'" -l service -x -a '(__kivcs2_list_services)' -d 'With --captions, only these services: CC1, T1, S1, or several with commas'
complete -c kivcs2 -n "__kivcs2_at 'format' 1 1" -a '(__kivcs2_list_video_formats)'
complete -c kivcs2 -n "__kivcs2_at 'rate' 1 1" -a '(__kivcs2_list_rates)'
complete -c kivcs2 -n "__kivcs2_at 'frame'" -a info -d 'Frames, bytes and length of a file; exit 3 if the last frame is not complete'
complete -c kivcs2 -n "__kivcs2_at 'frame'" -a convert -d 'Other pixels: v210 to 2vuy to RGB, and the orders of bytes'
complete -c kivcs2 -n "__kivcs2_at 'frame'" -a scale -d 'A smaller picture by point sampling; 4:2:2 becomes rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame'" -a deinterlace -d 'Every odd line replaced by the line above it'
complete -c kivcs2 -n "__kivcs2_at 'frame'" -a clear -d 'Frames of one colour'
complete -c kivcs2 -n "__kivcs2_at 'frame'" -a bars -d 'Colour bars'
complete -c kivcs2 -n "__kivcs2_at 'frame'" -a png -d 'One frame as a PNG picture'
complete -c kivcs2 -n "__kivcs2_at 'frame info' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l video -x -a '(__kivcs2_list_video_formats)' -d 'Size and pixels of a video format, as kivcs2 format lists them'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l width -x -d 'Pixels of a line'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l height -x -d 'Lines'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l format -x -a '(__kivcs2_list_pixel_formats)' -d 'v210, 2vuy, yuvs, rgba, bgra, argb or rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l row-bytes -x -d 'From one row of the file to the next'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l frame -x -d 'The frame to take, counted from 0'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l show -d 'Draw a frame of the result on the terminal'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l alpha -d 'Use the alpha of RGB; otherwise it is opaque'
complete -c kivcs2 -n "__kivcs2_at 'frame info'" -l matrix -x -a '601 709' -d '601 or 709; otherwise 601 up to 576 lines and 709 above'
complete -c kivcs2 -n "__kivcs2_at 'frame convert' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'frame convert' 2 2" -F
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l video -x -a '(__kivcs2_list_video_formats)' -d 'Size and pixels of a video format, as kivcs2 format lists them'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l width -x -d 'Pixels of a line'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l height -x -d 'Lines'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l format -x -a '(__kivcs2_list_pixel_formats)' -d 'v210, 2vuy, yuvs, rgba, bgra, argb or rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l row-bytes -x -d 'From one row of the file to the next'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l frame -x -d 'The frame to take, counted from 0'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l show -d 'Draw a frame of the result on the terminal'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l alpha -d 'Use the alpha of RGB; otherwise it is opaque'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l matrix -x -a '601 709' -d '601 or 709; otherwise 601 up to 576 lines and 709 above'
complete -c kivcs2 -n "__kivcs2_at 'frame convert'" -l to -x -a '(__kivcs2_list_pixel_formats)' -d 'The pixel format of the target'
complete -c kivcs2 -n "__kivcs2_at 'frame scale' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'frame scale' 2 2" -F
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l video -x -a '(__kivcs2_list_video_formats)' -d 'Size and pixels of a video format, as kivcs2 format lists them'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l width -x -d 'Pixels of a line'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l height -x -d 'Lines'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l format -x -a '(__kivcs2_list_pixel_formats)' -d 'v210, 2vuy, yuvs, rgba, bgra, argb or rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l row-bytes -x -d 'From one row of the file to the next'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l frame -x -d 'The frame to take, counted from 0'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l show -d 'Draw a frame of the result on the terminal'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l alpha -d 'Use the alpha of RGB; otherwise it is opaque'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l matrix -x -a '601 709' -d '601 or 709; otherwise 601 up to 576 lines and 709 above'
complete -c kivcs2 -n "__kivcs2_at 'frame scale'" -l size -x -d 'Such as 960x540'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace' 2 2" -F
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l video -x -a '(__kivcs2_list_video_formats)' -d 'Size and pixels of a video format, as kivcs2 format lists them'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l width -x -d 'Pixels of a line'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l height -x -d 'Lines'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l format -x -a '(__kivcs2_list_pixel_formats)' -d 'v210, 2vuy, yuvs, rgba, bgra, argb or rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l row-bytes -x -d 'From one row of the file to the next'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l frame -x -d 'The frame to take, counted from 0'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l show -d 'Draw a frame of the result on the terminal'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l alpha -d 'Use the alpha of RGB; otherwise it is opaque'
complete -c kivcs2 -n "__kivcs2_at 'frame deinterlace'" -l matrix -x -a '601 709' -d '601 or 709; otherwise 601 up to 576 lines and 709 above'
complete -c kivcs2 -n "__kivcs2_at 'frame clear' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l video -x -a '(__kivcs2_list_video_formats)' -d 'Size and pixels of a video format, as kivcs2 format lists them'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l width -x -d 'Pixels of a line'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l height -x -d 'Lines'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l format -x -a '(__kivcs2_list_pixel_formats)' -d 'v210, 2vuy, yuvs, rgba, bgra, argb or rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l frames -x -d 'How many, otherwise 1'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l show -d 'Draw a frame of the result on the terminal'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l alpha -d 'Use the alpha of RGB; otherwise it is opaque'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l matrix -x -a '601 709' -d '601 or 709; otherwise 601 up to 576 lines and 709 above'
complete -c kivcs2 -n "__kivcs2_at 'frame clear'" -l colour -x -a 'black grey white' -d 'white, black or grey, otherwise black'
complete -c kivcs2 -n "__kivcs2_at 'frame bars' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l video -x -a '(__kivcs2_list_video_formats)' -d 'Size and pixels of a video format, as kivcs2 format lists them'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l width -x -d 'Pixels of a line'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l height -x -d 'Lines'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l format -x -a '(__kivcs2_list_pixel_formats)' -d 'v210, 2vuy, yuvs, rgba, bgra, argb or rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l frames -x -d 'How many, otherwise 1'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l show -d 'Draw a frame of the result on the terminal'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l alpha -d 'Use the alpha of RGB; otherwise it is opaque'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l matrix -x -a '601 709' -d '601 or 709; otherwise 601 up to 576 lines and 709 above'
complete -c kivcs2 -n "__kivcs2_at 'frame bars'" -l pattern -x -a 'ebu100 ebu75 smpte' -d 'smpte (75 % over the PLUGE), ebu75 or ebu100, otherwise smpte'
complete -c kivcs2 -n "__kivcs2_at 'frame png' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'frame png' 2 2" -F
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l video -x -a '(__kivcs2_list_video_formats)' -d 'Size and pixels of a video format, as kivcs2 format lists them'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l width -x -d 'Pixels of a line'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l height -x -d 'Lines'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l format -x -a '(__kivcs2_list_pixel_formats)' -d 'v210, 2vuy, yuvs, rgba, bgra, argb or rgb'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l row-bytes -x -d 'From one row of the file to the next'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l frame -x -d 'The frame to take, counted from 0'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l show -d 'Draw a frame of the result on the terminal'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l alpha -d 'Use the alpha of RGB; otherwise it is opaque'
complete -c kivcs2 -n "__kivcs2_at 'frame png'" -l matrix -x -a '601 709' -d '601 or 709; otherwise 601 up to 576 lines and 709 above'
complete -c kivcs2 -n "__kivcs2_at 'audio'" -a weave -d 'Samples of each channel that belong to the frames of a cycle'
complete -c kivcs2 -n "__kivcs2_at 'audio'" -a code -d 'Pack a 32-bit format code'
complete -c kivcs2 -n "__kivcs2_at 'audio'" -a describe -d 'Take a format code apart'
complete -c kivcs2 -n "__kivcs2_at 'audio'" -a convert -d 'Convert the width and byte order of raw PCM, or split it'
complete -c kivcs2 -n "__kivcs2_at 'audio weave' 1 1" -a '(__kivcs2_list_frame_rates)'
complete -c kivcs2 -n "__kivcs2_at 'audio weave'" -l samples -x -d 'Samples a second; without it 48000 and 96000'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l encoding -x -a 'lpcm aac' -d 'Encoding of the samples'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l sample-rate -x -a '44100 48000' -d 'Samples a second'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l channels -x -d '1 to 16'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l bytes -x -d 'Bytes of a sample, 1 to 7'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l used -x -d 'Bytes of it that are used; without it all'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l data-type -x -d '0 or 1, as the host has it'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l data-stream -x -d '0 or 1, as the host has it'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l endian -x -d '0 or 1, as the host has it'
complete -c kivcs2 -n "__kivcs2_at 'audio code'" -l alignment -x -d '0 or 1, as the host has it'
complete -c kivcs2 -n "__kivcs2_at 'audio convert' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'audio convert' 2 2" -F
complete -c kivcs2 -n "__kivcs2_at 'audio convert'" -l input -x -a '(__kivcs2_list_sample_formats)' -d 'Format of the samples'
complete -c kivcs2 -n "__kivcs2_at 'audio convert'" -l channels -x -d 'Channels of the input'
complete -c kivcs2 -n "__kivcs2_at 'audio convert'" -l bits -x -a '16 24' -d 'Width of the result; without it the input\'s'
complete -c kivcs2 -n "__kivcs2_at 'audio convert'" -l swap -d 'The other byte order'
complete -c kivcs2 -n "__kivcs2_at 'audio convert'" -l split -d 'One plane for each channel'
complete -c kivcs2 -n "__kivcs2_at 'audio convert'" -l channel -x -d 'Only this channel, from 1 on'
complete -c kivcs2 -n "__kivcs2_at 'codec'" -a list -d 'The table, with the largest frame in bytes by height'
complete -c kivcs2 -n "__kivcs2_at 'codec'" -a show -d 'One codec, by its name or code'
complete -c kivcs2 -n "__kivcs2_at 'codec'" -a unpack -d 'Decode codes, known ones or not'
complete -c kivcs2 -n "__kivcs2_at 'codec show' 1 1" -a '(__kivcs2_list_codecs)'
complete -c kivcs2 -n "__kivcs2_at 'codec show'" -l format -x -a '(__kivcs2_list_video_formats)' -d 'In this video format (without the pixel format: 8 Bit)'
complete -c kivcs2 -n "__kivcs2_at 'curve'" -a list -d 'The curves, their formulas and values'
complete -c kivcs2 -n "__kivcs2_at 'curve'" -a plot -d 'A plot in characters, of one curve or of all'
complete -c kivcs2 -n "__kivcs2_at 'curve'" -a png -d 'The same as a picture'
complete -c kivcs2 -n "__kivcs2_at 'curve'" -a run -d 'The values of a sequence, frame by frame'
complete -c kivcs2 -n "__kivcs2_at 'curve plot' 1 1" -a '(__kivcs2_list_curves)'
complete -c kivcs2 -n "__kivcs2_at 'curve png' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'curve png' 2 2" -a '(__kivcs2_list_curves)'
complete -c kivcs2 -n "__kivcs2_at 'curve png'" -l side -x -d 'Pixels of a plot, wide and high; otherwise 480, or 200 for each of several'
complete -c kivcs2 -n "__kivcs2_at 'curve run'" -l rate -x -a '(__kivcs2_list_rates)' -d 'Frames a second, for lengths in seconds; otherwise 25'
complete -c kivcs2 -n "__kivcs2_at 'curve run'" -l frames -x -d 'This many frames instead of those of the steps'
complete -c kivcs2 -n "__kivcs2_at 'curve run'" -l looped -d 'The first step follows the last'
complete -c kivcs2 -n "__kivcs2_at 'crc' 1 536870912" -F
complete -c kivcs2 -n "__kivcs2_at 'str'" -a detect -d 'Name the encoding by the byte-order mark (exit 1: none)'
complete -c kivcs2 -n "__kivcs2_at 'str'" -a convert -d 'Write a text in another encoding'
complete -c kivcs2 -n "__kivcs2_at 'str detect' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'str convert' 1 1" -F
complete -c kivcs2 -n "__kivcs2_at 'str convert'" -s o -l output -r -F -d 'Where to write; - is standard output'
complete -c kivcs2 -n "__kivcs2_at 'str convert'" -l from -x -a '(__kivcs2_list_encodings)' -d 'Encoding of the file; auto reads the mark, else utf8'
complete -c kivcs2 -n "__kivcs2_at 'str convert'" -l to -x -a '(__kivcs2_list_encodings)' -d 'Encoding to write'
complete -c kivcs2 -n "__kivcs2_at 'str convert'" -l mark -d 'Write a byte-order mark first'
complete -c kivcs2 -n "__kivcs2_at 'json'" -l passes -d 'Report the measured and the written bytes on standard error'
complete -c kivcs2 -n "__kivcs2_at 'pipe'" -l size -x -d 'Bytes of the ring (1M)'
complete -c kivcs2 -n "__kivcs2_at 'pipe'" -l chunk -x -d 'Most bytes read or written at once (64k)'
complete -c kivcs2 -n "__kivcs2_at 'pipe'" -l mode -x -a 'reject overwrite' -d 'What happens when the ring is full (reject)'
complete -c kivcs2 -n "__kivcs2_at 'pipe'" -l meter -d 'Show the fill meter even if standard error is not a terminal'
complete -c kivcs2 -n "__kivcs2_at 'pipe'" -l quiet -d 'Neither meter nor report'
complete -c kivcs2 -n "__kivcs2_at 'shm'" -a show -d 'One segment, or all of the machine'
complete -c kivcs2 -n "__kivcs2_at 'shm'" -a find -d 'The first key without a segment'
complete -c kivcs2 -n "__kivcs2_at 'shm'" -a create -d 'Make a segment of zeros and leave it on the machine'
complete -c kivcs2 -n "__kivcs2_at 'shm'" -a attach -d 'Fill a segment from a file, or read it into one'
complete -c kivcs2 -n "__kivcs2_at 'shm'" -a free -d 'Remove a segment; exit 1 while others are attached'
complete -c kivcs2 -n "__kivcs2_at 'shm create'" -l hold -d 'Stay attached until interrupted; then remove it unless others are attached'
complete -c kivcs2 -n "__kivcs2_at 'shm create'" -l clear -d 'Also if the key has a segment: set its first bytes to zero'
complete -c kivcs2 -n "__kivcs2_at 'shm attach'" -s w -l write -r -F -d 'Copy this file into the segment'
complete -c kivcs2 -n "__kivcs2_at 'shm attach'" -s r -l read -r -F -d 'Copy the segment into this file'
complete -c kivcs2 -n "__kivcs2_at 'shm attach'" -l offset -x -d 'First byte in the segment'
complete -c kivcs2 -n "__kivcs2_at 'shm attach'" -l length -x -d 'Bytes of the segment, otherwise to its end'
complete -c kivcs2 -n "__kivcs2_at 'shm attach'" -l free -d 'Free it afterwards instead of leaving it'
complete -c kivcs2 -n "__kivcs2_at 'sensors'" -a show -d 'Fan speeds, temperatures and power figures now'
complete -c kivcs2 -n "__kivcs2_at 'sensors'" -a watch -d 'The same repeatedly, until interrupted'
complete -c kivcs2 -n "__kivcs2_at 'sensors show'" -l keys -d 'Every key with its type and bytes instead'
complete -c kivcs2 -n "__kivcs2_at 'sensors watch'" -l every -x -d 'Seconds from one reading to the next, otherwise 1'
complete -c kivcs2 -n "__kivcs2_at 'sensors watch'" -l count -x -d 'End after this many readings'
complete -c kivcs2 -n "__kivcs2_at 'run'" -l direct -d 'Launch it without the server, and wait'
complete -c kivcs2 -n "__kivcs2_at 'run'" -l async -d 'Launch it without the server, on a thread'
complete -c kivcs2 -n "__kivcs2_at 'run'" -l stdout -r -F -d 'Its standard output goes to this file'
complete -c kivcs2 -n "__kivcs2_at 'run'" -l stderr -r -F -d 'Its standard error goes to this file'
complete -c kivcs2 -n "__kivcs2_at 'run'" -l timeout -x -d 'Seconds; then it is ended with all processes that it started'
complete -c kivcs2 -n "__kivcs2_at 'sys'" -a show -d 'All figures now'
complete -c kivcs2 -n "__kivcs2_at 'sys'" -a watch -d 'The memory repeatedly, until interrupted'
complete -c kivcs2 -n "__kivcs2_at 'sys watch'" -l every -x -d 'Seconds from one reading to the next, otherwise 1'
complete -c kivcs2 -n "__kivcs2_at 'sys watch'" -l count -x -d 'End after this many readings'
complete -c kivcs2 -n "__kivcs2_at 'services'" -a publish -d 'Offer a service until the command is ended'
complete -c kivcs2 -n "__kivcs2_at 'services'" -a browse -d 'List the services of a type as they come'
complete -c kivcs2 -n "__kivcs2_at 'services'" -a types -d 'List the types of services, and how many of each are offered'
complete -c kivcs2 -n "__kivcs2_at 'services'" -a first -d 'Find one service by name'
complete -c kivcs2 -n "__kivcs2_at 'services'" -a monitor -d 'Show a service\'s TXT record whenever it changes'
complete -c kivcs2 -n "__kivcs2_at 'services publish'" -l domain -x -d 'Domain to use instead of local'
complete -c kivcs2 -n "__kivcs2_at 'services publish'" -l text -x -d 'A text of its TXT record, such as rate=25; may be repeated'
complete -c kivcs2 -n "__kivcs2_at 'services browse'" -l domain -x -d 'Domain to use instead of local'
complete -c kivcs2 -n "__kivcs2_at 'services browse'" -s t -l terminate -d 'End when the list is complete'
complete -c kivcs2 -n "__kivcs2_at 'services types'" -l domain -x -d 'Domain to use instead of local'
complete -c kivcs2 -n "__kivcs2_at 'services first'" -l domain -x -d 'Domain to use instead of local'
complete -c kivcs2 -n "__kivcs2_at 'services first'" -l timeout -x -d 'Milliseconds to look for it'
complete -c kivcs2 -n "__kivcs2_at 'services monitor'" -l domain -x -d 'Domain to use instead of local'
complete -c kivcs2 -n "__kivcs2_at 'services monitor'" -l timeout -x -d 'Milliseconds to look for it'
complete -c kivcs2 -n "__kivcs2_at 'services monitor'" -l count -x -d 'End after this many records; 0 goes on without end'
complete -c kivcs2 -n "__kivcs2_at 'net'" -a listen -d 'Accept a TCP connection and receive its data'
complete -c kivcs2 -n "__kivcs2_at 'net'" -a recv -d 'Receive from a TCP server, on a UDP address or in a group'
complete -c kivcs2 -n "__kivcs2_at 'net'" -a send -d 'Send numbered messages, or standard input'
complete -c kivcs2 -n "__kivcs2_at 'net listen'" -l count -x -d 'End after this many messages'
complete -c kivcs2 -n "__kivcs2_at 'net listen'" -l timeout -x -d 'Fail if no data comes for this many seconds'
complete -c kivcs2 -n "__kivcs2_at 'net listen'" -l data -d 'Write the data to standard output, the meter to standard error'
complete -c kivcs2 -n "__kivcs2_at 'net listen'" -l keep -d 'Accept one connection after the other'
complete -c kivcs2 -n "__kivcs2_at 'net recv' 1 1" -a 'tcp udp group'
complete -c kivcs2 -n "__kivcs2_at 'net recv'" -l count -x -d 'End after this many messages'
complete -c kivcs2 -n "__kivcs2_at 'net recv'" -l timeout -x -d 'Fail if no data comes for this many seconds'
complete -c kivcs2 -n "__kivcs2_at 'net recv'" -l data -d 'Write the data to standard output, the meter to standard error'
complete -c kivcs2 -n "__kivcs2_at 'net send' 1 1" -a 'tcp udp group'
complete -c kivcs2 -n "__kivcs2_at 'net send'" -l count -x -d 'End after this many messages'
complete -c kivcs2 -n "__kivcs2_at 'net send'" -l size -x -d 'Bytes of a message'
complete -c kivcs2 -n "__kivcs2_at 'net send'" -l rate -x -d 'Messages a second; 0 sends as fast as possible'
complete -c kivcs2 -n "__kivcs2_at 'net send'" -l ttl -x -d 'Routers that a datagram to a group may pass, plus 1'
complete -c kivcs2 -n "__kivcs2_at 'net send'" -l input -d 'Send standard input in messages of --size bytes'
complete -c kivcs2 -n "__kivcs2_at 'status' 1 1" -a '(__kivcs2_list_statuses)'
complete -c kivcs2 -n "__kivcs2_at 'generate'" -a man -d 'A manual page: of the command, or of one of its words'
complete -c kivcs2 -n "__kivcs2_at 'generate'" -a completion -d 'A script with which a shell completes words and options'
complete -c kivcs2 -n "__kivcs2_at 'generate'" -a markdown -d 'Tables of the words, their options and examples'
complete -c kivcs2 -n "__kivcs2_at 'generate'" -a json -d 'All words, options and examples for programs'
complete -c kivcs2 -n "__kivcs2_at 'generate completion' 1 1" -a 'bash zsh fish'
complete -c kivcs2 -l json -d 'Write JSON for programs instead of tables'
complete -c kivcs2 -s h -l help -d 'The help of the word in front of it'
