Messages that differ in values are one pattern; what changed from a healthy log to a bad one.

  $ lines() { awk -v n=$1 -v bad=$2 'BEGIN {
  >     for (i = 1; i <= n; ++i) {
  >         printf "%d.000 I/net (P 5, T 5): link eth%d is up, %d ms\n", i, i % 3, i * 7 % 50
  >         if (i % 4 == 0) printf "%d.100 W/disk (P 6, T 6): sector 0x%x is slow\n", i, i * 4096
  >         if (!bad && i % 2 == 0) printf "%d.200 I/dog (P 7, T 7): watchdog fed\n", i
  >         if (bad && i % 50 == 0) printf "%d.300 E/disk (P 6, T 6): cannot read /dev/sd%c: error %d\n", i, 97 + i % 2, i
  >         if (i % 3 == 0) printf "%d.400 %s/app (P 8, T 8): request took %d.5 s\n", i, bad ? "E" : "I", i % 9
  >         if (bad && i > 100 && i <= 140) for (k = 0; k < 5; ++k) printf "%d.500 I/app (P 8, T 8): queue flushed\n", i
  >         if (!bad && i % 10 == 0) printf "%d.500 I/app (P 8, T 8): queue flushed\n", i
  >     }
  > }'; }
  $ lines 600 0 | make_dump good.dump
  $ lines 300 1 | make_dump bad.dump
  $ trelvoctl patterns good.dump
      COUNT L   FIRST    LAST TIMELINE            PATTERN
        600 I   1.000 600.000 ██████████████████▃ link eth<*> is up, <*>
              net: link eth1 is up, 7 ms
        300 I   2.200 600.200 ██████████████████▃ watchdog fed
        200 I   3.400 600.400 ██████████████████▃ request took <*>
              app: request took 3.5 s
        150 W   4.100 600.100 ██████████████████▃ sector <*> is slow
              disk: sector 0x4000 is slow
         60 I  10.500 600.500 ▆▆▆█▆▆▆█▆▆█▆▆▆█▆▆█▂ queue flushed
  $ trelvoctl patterns '*:W' bad.dump
      COUNT L   FIRST    LAST TIMELINE            PATTERN
        100 E   3.400 300.400 █▇█▇█▇█▇█▇█▇▇█▇█▇█▂ request took <*>
              app: request took 3.5 s
         75 W   4.100 300.100 ▇█▇▇▇▇▇▇▇▇▇▇█▇▇▇▇▇▂ sector <*> is slow
              disk: sector 0x4000 is slow
          6 E  50.300 300.300   █  █  █   █  █  █ cannot read <*>: error <*>
              disk: cannot read /dev/sda: error 50
  $ trelvoctl patterns -g slow -o json bad.dump
  {"pattern":1,"text":"sector <*> is slow","count":75,"level":"W","levels":{"W":75},"first":{"time_ms":4100},"last":{"time_ms":300100},"part_ms":16384,"timeline":[5,4,4,4,4,4,4,4,4,4,5,4,4,4,4,4,4,4,1],"tag":"disk","example":"sector 0x4000 is slow","folded":false}
  $ trelvoctl patterns --lines -o json --since 298 bad.dump
  {"time_ms":298000,"level":"I","tag":"net","pid":5,"tid":5,"message":"link eth1 is up, 36 ms","coded":false,"file":"bad.dump","pattern":1}
  {"time_ms":299000,"level":"I","tag":"net","pid":5,"tid":5,"message":"link eth2 is up, 43 ms","coded":false,"file":"bad.dump","pattern":1}
  {"time_ms":300000,"level":"I","tag":"net","pid":5,"tid":5,"message":"link eth0 is up, 0 ms","coded":false,"file":"bad.dump","pattern":1}
  {"time_ms":300100,"level":"W","tag":"disk","pid":6,"tid":6,"message":"sector 0x12c000 is slow","coded":false,"file":"bad.dump","pattern":2}
  {"time_ms":300300,"level":"E","tag":"disk","pid":6,"tid":6,"message":"cannot read /dev/sda: error 300","coded":false,"file":"bad.dump","pattern":3}
  {"time_ms":300400,"level":"E","tag":"app","pid":8,"tid":8,"message":"request took 3.5 s","coded":false,"file":"bad.dump","pattern":4}
  $ trelvoctl compare good.dump bad.dump
  good: 1310 lines in 9 min 59 s; bad: 681 lines in 4 min 59 s, most patterns x0.5
  4 of 7 patterns changed
  CHANGE L GOOD BAD    TIME TAG: EXAMPLE
  was I  E    0 100   3.400 app: request took 3.5 s
  new    E    0   6  50.300 disk: cannot read /dev/sda: error 50
  burst  I   60 200 107.500 app: queue flushed
  gone   I  300   0 600.200 dog: watchdog fed
  $ trelvoctl compare -o json good.dump bad.dump | sed 's/"chance":[^,]*/"chance":0/g'
  {"good":{"lines":1310,"span_ms":599500},"bad":{"lines":681,"span_ms":299400},"usual_ratio":0.49941701515093384,"patterns":7,"changes":[{"change":"level","level":"E","old_level":"I","tag":"app","text":"request took <*>","at":{"time_ms":3400},"good":{"count":0},"bad":{"count":100,"first":{"time_ms":3400},"last":{"time_ms":300400}},"ratio":null,"chance":0,"example":"request took 3.5 s"},{"change":"new","level":"E","tag":"disk","text":"cannot read <*>: error <*>","at":{"time_ms":50300},"good":{"count":0},"bad":{"count":6,"first":{"time_ms":50300},"last":{"time_ms":300300}},"ratio":null,"chance":0,"example":"cannot read /dev/sda: error 50"},{"change":"burst","level":"I","tag":"app","text":"queue flushed","at":{"time_ms":107500},"good":{"count":60,"first":{"time_ms":10500},"last":{"time_ms":600500}},"bad":{"count":200,"first":{"time_ms":101500},"last":{"time_ms":140500}},"ratio":6.674448871802922,"chance":0,"example":"queue flushed"},{"change":"gone","level":"I","tag":"dog","text":"watchdog fed","at":{"time_ms":600200},"good":{"count":300,"first":{"time_ms":2200},"last":{"time_ms":600200}},"bad":{"count":0},"ratio":0.0,"chance":0,"example":"watchdog fed"}],"doubtful":[]}
  $ for i in 1 2; do printf "1.000 I/A (P 1, T 1): try $i: "; printf 'ä%.0s' $(seq 300); echo; done | make_dump long.dump
  $ trelvoctl patterns long.dump | tail -c 12
  \xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xe2\x80\xa6 (esc)
  $ trelvoctl compare good.dump good.dump
  good: 1310 lines in 9 min 59 s; bad: 1310 lines in 9 min 59 s, most patterns x1
  0 of 5 patterns changed
  $ rarely() { awk -v n=$1 'BEGIN {
  >     for (i = 1; i <= 400; ++i) {
  >         printf "%d.000 I/A (P 1, T 1): steady\n", i
  >         if (i % n == 0) printf "%d.500 I/A (P 1, T 1): rare\n", i
  >     }
  > }'; }
  $ rarely 2 | make_dump often.dump; rarely 20 | make_dump seldom.dump
  $ trelvoctl compare often.dump seldom.dump
  good: 600 lines in 6 min 39 s; bad: 420 lines in 6 min 39 s, most patterns x1
  1 of 2 patterns changed
  CHANGE L GOOD BAD   TIME TAG: EXAMPLE
  x0.1   I  200  20 20.500 A: rare
  $ trelvoctl compare -o json often.dump seldom.dump | grep -o '"change":"[a-z]*"'
  "change":"less"
  $ touch A:I; trelvoctl compare good.dump bad.dump A:I; rm A:I
  trelvoctl: compare: 'A:I' is a file; several dumps of one side go into a folder
  $ trelvoctl compare good.dump A:I
  trelvoctl: compare: 'A:I' is TAG:LEVEL, where GOOD and BAD stand: two dumps
  [2]
  $ trelvoctl compare good.dump bad.dump '*:E'
  trelvoctl: good.dump: has no lines to compare
  [6]
  $ trelvoctl report bad.dump --good good.dump -o page.html
  $ trelvoctl report good.dump --good bad.dump 'none:F' -o page.html
  trelvoctl: bad.dump: has no lines to compare
  [6]

A log of two boots without clock lines: what came first is told by the place, not by the time.

  $ mkdir boots
  $ for i in $(seq 20); do echo "$i.000 I/A (P 1, T 1): steady"; done | tee steady | make_dump one.dump
  $ session() { echo "$1.000 E/A (P 1, T 1): cannot open session for $2"; }
  $ (cat steady; session 600 alice; session 700 dave) | make_dump boots/1.dump
  $ (session 7 bob; session 8 carol) | make_dump boots/2.dump; touch -d 2025-11-24 boots/1.dump
  $ trelvoctl compare one.dump boots 2>/dev/null | grep session
  new    E    0   4 600.000 A: cannot open session for alice
  $ trelvoctl compare -o json one.dump boots 2>/dev/null | grep -o '"bad":{"count":4[^}]*}[^}]*}'
  "bad":{"count":4,"first":{"time_ms":600000},"last":{"time_ms":8000}

Usual patterns that are many times as frequent.

  $ for i in $(seq 2000); do echo "$i.000 I/A (P 1, T 1): steady"; done | make_dump long.dump
  $ trelvoctl compare one.dump long.dump | head -1
  good: 20 lines in 19.000 s; bad: 2000 lines in 33 min 19 s, most patterns x105

The time of several dumps is that which they cover; a busier log changes nothing by itself, nor does
a longer one of which most is as before.

  $ mkdir gap; cp one.dump gap; for i in $(seq 2001 2020); do echo "$i.000 I/A (P 1, T 1): steady"; done | make_dump gap/later.dump
  $ trelvoctl compare one.dump gap 2>/dev/null
  good: 20 lines in 19.000 s; bad: 40 lines in 38.000 s, most patterns x2
  0 of 1 patterns changed
  $ busy() { awk -v n=$1 -v ticks=$2 'BEGIN {
  >     for (i = 1; i <= ticks; ++i) {
  >         printf "%d.000 I/A (P 1, T 1): tick\n", i
  >         for (k = 0; i % (ticks / 60) == 0 && k < 12 * n; ++k) printf "%d.000 I/A (P 1, T 1): %c%c\n", i, 97 + k % 12, 97 + k % 12
  >     }
  > }'; }
  $ busy 2 60 | make_dump usual.dump; busy 4 60 | make_dump busy.dump; busy 2 180 | make_dump longer.dump
  $ trelvoctl compare usual.dump busy.dump
  good: 1500 lines in 59.000 s; bad: 2940 lines in 59.000 s, most patterns x2
  0 of 13 patterns changed
  $ trelvoctl compare usual.dump longer.dump
  good: 1500 lines in 59.000 s; bad: 1620 lines in 2 min 59 s, most patterns x1
  0 of 13 patterns changed

A new error is a change, not a doubt, where little came once.

  $ (busy 2 60; echo '61.000 I/A (P 1, T 1): once') | make_dump once.dump
  $ (busy 2 60; echo '61.000 E/A (P 1, T 1): broken') | make_dump broken.dump
  $ trelvoctl compare once.dump broken.dump | sed 1d
  1 of 15 patterns changed
  CHANGE L GOOD BAD   TIME TAG: EXAMPLE
  new    E    0   1 61.000 A: broken

What stands first: errors, but no vanished ones; of each tag and kind no more than three before others.

  $ lines() { for i in $(seq $1); do echo "$i.000 $2 (P 1, T 1): $3"; done; }
  $ (lines 60 E/A 'disk is full'; lines 90 I/B 'door opened'; lines 9 W/B 'door opened') | sort -n | make_dump before.dump
  $ (lines 60 W/A 'fan stopped'; lines 30 E/B 'door opened'; lines 20 E/A 'no room'
  >     for text in one two three four; do lines 50 I/C $text; done
  >     lines 40 I/D 'seldom') | sort -n | make_dump after.dump
  $ trelvoctl compare before.dump after.dump
  good: 159 lines in 1 min 29 s; bad: 350 lines in 59.000 s, most patterns x0.66
  9 of 11 patterns changed
  CHANGE L GOOD BAD   TIME TAG: EXAMPLE
  was I  E    0  30  1.000 B: door opened
  new    E    0  20  1.000 A: no room
  new    W    0  60  1.000 A: fan stopped
  new    I    0  50  1.000 C: four
  new    I    0  50  1.000 C: one
  new    I    0  50  1.000 C: three
  new    I    0  40  1.000 D: seldom
  gone   E   60   0 60.000 A: disk is full
  new    I    0  50  1.000 C: two

On a terminal a row each, in its width.

  $ script -qec 'stty cols 40; trelvoctl compare good.dump bad.dump' /dev/null </dev/null | tail -1
  gone   I  300   0 600.200 dog: watchdog \r (esc)

Times are local, unless --utc.

  $ clock='boot=0123456789abcdef0123456789abcdef host=till wall=1764000001.000000 monotonic=1.000000'
  $ (echo "1.000 I/trelvo.clock (P 7, T 7): $clock"; cat steady; echo '30.000 E/A (P 1, T 1): new') | make_dump wall.dump
  $ for utc in '' --utc; do TZ=Asia/Kolkata trelvoctl compare $utc one.dump wall.dump | tail -1; done
  new    E    0   1 11-24 21:30:30.000 A: new
  new    E    0   1 11-24 16:00:30.000 A: new
  $ TZ=Asia/Kolkata trelvoctl compare -o json --utc one.dump wall.dump | grep -o '"at":[^}]*'
  "at":{"time_ms":30000,"time":"2025-11-24T16:00:30.000Z"
