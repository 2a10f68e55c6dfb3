# shellcheck shell=bash
# Commands for json_schemas.py: each word of kivcs2 succeeds and fails. $commands is the folder of kivcs2, $examples
# that of the example files. $bad is a file name with ESC, quotes, a line end and bytes that are not UTF-8.

: "${commands:?}" "${examples:?}"
export PATH=$commands:$PATH LC_ALL=C.UTF-8
bad=$'b\e]0;x\a"\'\\\n\xff\xe2\x80\xae' nowhere=$'/nowhere/\e"\n\xff'
j() { kivcs2 --json "$@"; }
with_controller() { "${commands%/recorded}/kivcs2_with_controller" --json "$@"; }
cp "$examples"/captions.scc in.scc
kivcs2 caption convert in.scc in.mcc >log
printf 'Scenarist_SCC V1.0\n\n00:00:01;00\t9420 94\e5 "c\xff\n\n00:00:02;99\t9420\n' >bad.scc
cp bad.scc "$bad"
kivcs2 cdp build --field1 942c --field2 1520 --binary -o packet
{ printf 'a\x01\x52'; cat packet; printf '\x00'; } >carrier
printf '\xef\xbb\xbfabc' >marked
head -c 4000 /dev/zero >sound

j tc show 01:00:00:00; j tc show "01:00:00;02"; j tc show 99:00:00:00 --rate 60; j tc show "$bad"
j tc add 23:00:00:00 1h30m --rate 25; j tc add "15.3.2024 10:00:00:00" 10 --rate 25; j tc add x y
j tc sub 10:00:00:00 1h --rate 25; j tc sub "$bad" 1
j tc diff 10:00:00:00 09:00:00:00 --rate 25; j tc diff 1 "$bad"
j tc convert "01:00:00;00" --to 25; j tc convert "01:00:00;00" --to "$bad"
j tc bcd 12:34:56:12 --rate 25; j tc bcd 0x12345612 --rate 25; j tc bcd "$bad"
j tc date "15.3.2024 10:00:00:00" --rate 25; j tc date @0 --rate 25; j tc date "$bad"
j caption info in.scc; j caption info in.mcc; j caption info "$bad"; j caption info bad.scc
j caption info "$nowhere"
j caption show in.scc; j caption show in.mcc --captions; j caption show "$bad"; j caption show bad.scc
j caption show "$nowhere"
j caption at in.scc "01:00:01;00"; j caption at in.mcc "01:00:01;00"; j caption at bad.scc 1 --keep-going
j caption at "$nowhere" 1
j caption decode 9420 94ae c849; j caption decode "$bad"
j caption convert in.scc out.mcc; j caption convert in.mcc out.scc; j caption convert in.mcc out.srt
j caption convert in.scc - >x
j caption convert in.scc out.mcc --to-rate 25; j caption convert bad.scc "$bad".mcc --keep-going
j caption convert bad.scc out.mcc
j caption convert "$nowhere" out.mcc; j caption convert in.scc /nowhere/"$bad".mcc
j caption convert in.mcc again.mcc
j caption verify in.scc; j caption verify in.mcc --against in.scc; j caption verify "$bad"
j caption verify bad.scc; j caption verify "$nowhere"
j caption monitor udp://127.0.0.1:20000 --for 5 --to out.mcc >heard & until [[ -s heard ]]; do sleep 0.1; done
j caption play in.scc udp://127.0.0.1:20000 --speed 100; wait
j caption monitor udp://127.0.0.1:20001 --for 0.1 --service CC1
j caption play "$nowhere" udp://127.0.0.1:20000; j caption monitor "$bad"
j cdp build --field1 942c -o "$bad".hex; j cdp build --field1 942c; j cdp build --field1 "$bad"
j cdp build --field1 942c -o /nowhere/"$bad"
j cdp parse packet; j cdp parse --hex 9669; j cdp parse "$nowhere"; j cdp parse "$bad"
j cdp find carrier --in 291m --words 8bit; j cdp find carrier --in 291m --words 8bit --captions
j cdp find "$bad" --in rtp; j cdp find "$nowhere" --in 436m
j format; j format 1080i25; j format "$bad"
j rate; j rate 29.97; j rate "$bad"
j frame bars bars.v210 --video "625i25 10 Bit" --frames 2; j frame bars "$bad".v210 --video "625i25 10 Bit"
j frame bars - --video 625i25 >x; j frame bars x --video "$bad"
j frame info bars.v210 --video "625i25 10 Bit"
j frame info "$bad".v210 --width 720 --height 576 --format v210; j frame info "$nowhere" --video 625i25
j frame info "$bad" --video 625i25
j frame convert bars.v210 bars.2vuy --to 2vuy --video "625i25 10 Bit"
j frame convert bars.v210 - --to 2vuy --video "625i25 10 Bit" >x
j frame convert "$nowhere" y --to 2vuy --video "625i25 10 Bit"
j frame scale bars.2vuy small.rgb --size 360x288 --video 625i25
j frame scale "$nowhere" small.rgb --size 360x288 --video 625i25
j frame deinterlace bars.2vuy lines.2vuy --video 625i25
j frame deinterlace "$nowhere" lines.2vuy --video 625i25
j frame clear black.2vuy --video 625i25 --frames 2; j frame clear /nowhere/"$bad" --video 625i25
j frame png bars.v210 bars.png --video "625i25 10 Bit"; j frame png bars.v210 - --video "625i25 10 Bit" >x
j frame png "$nowhere" x --video 625i25
j audio weave; j audio weave 29.97 --samples 48000; j audio weave "$bad"
j audio code --channels 16 --bytes 3; j audio code --encoding "$bad"
j audio describe 0x0010011a; j audio describe 0xffffffff; j audio describe "$bad"
j audio convert sound "$bad".raw --input s16le --channels 2 --split
j audio convert sound - --input s16le --channels 2 --swap >x
j audio convert "$nowhere" out.raw --input s16le --channels 2
j codec list; j codec list x
j codec show "ProRes 422 (HQ)"; j codec show apcn --format 1080i25; j codec show "$bad"
j codec unpack apcn 0x6e645641; j codec unpack $'a\e"\n'; j codec unpack "$bad"
j curve list; j curve list x
j curve plot
j curve png "$bad".png SinOut; j curve png /nowhere/"$bad"
j curve run QuadraticIn:5:0:100 hold:1 SinOut:1s:100:0; j curve run ExpIn:1:0:1 --looped --frames 3
j curve run "$bad"
j crc in.scc "$bad"; j crc "$nowhere" in.scc; j crc
j str detect marked; j str detect in.scc; j str detect "$bad"; j str detect "$nowhere"
j str convert in.scc -o "$bad".txt --to utf16le --mark; j str convert "$nowhere" -o x
j json name="clean feed" rate:float=29.97 drop:bool=true; j json "$bad"
j pipe <in.scc >x; j pipe --size 4 --chunk 8 </dev/null
j shm create 0x4b495600 64K; j shm create 0x4b495600 64K; j shm create "$bad" 1
j shm show; j shm show 0x4b495600; j shm show 0x4b495601; j shm show "$bad"
j shm find 0x4b495600; j shm find "$bad"
j shm attach 0x4b495600 --write in.scc --length 7; j shm attach 0x4b495600 --read "$bad".shm
j shm attach 0x4b495600 --read /nowhere/"$bad"; j shm attach 1 --read x
j shm free 0x4b495600; j shm free 0x4b495600
with_controller sensors show; with_controller sensors show --keys
KIV_BROKEN_CONTROLLER=1 with_controller sensors show; j sensors show
with_controller sensors watch --count 2 --every 0.1; j sensors watch --count 1
j run -- true; j run -- false; j run --stdout x -- true; j run -- "$nowhere"
j sys show; j sys show x
j sys watch --count 2 --every 0.1; j sys watch --count 0
j doctor; j doctor x
j services publish 'In "1"' _kiv-test._tcp 5000 --text 'a="b"' --text $'e=\e\xff' >offered &
until [[ -s offered ]]; do sleep 0.1; done
j services browse _kiv-test._tcp -t; j services types; j services first 'In "1"' _kiv-test._tcp
j services monitor 'In "1"' _kiv-test._tcp --count 1
kill %1; wait; j services publish "$bad" _kiv-test._tcp 5000; j services browse "$bad"; j services types x
j services first nobody _kiv-test._tcp --timeout 100; j services monitor "$bad" _x
j net listen 5004 --count 3 & until j net send tcp 127.0.0.1 5004 --count 3; do sleep 0.1; done; wait
j net listen "$bad"
j net recv udp 127.0.0.1 5005 --count 1 & until ! kill -0 $!; do j net send udp 127.0.0.1 5005 --count 1; done
j net recv udp 127.0.0.1 5005 --timeout 0.1
j net recv tcp "$bad" 1; j net send tcp 127.0.0.1 1; j net send udp "$bad" 1
j status; j status 0x8000000b; j status KIVCS2STATUS_OK; j status "$bad"
j generate man; j generate man caption; j generate man "$bad"
j generate completion bash; j generate completion "$bad"
j generate markdown; j generate markdown "$bad"
j generate json; j generate json "$bad"
j help; j help tc; j help "$bad"
