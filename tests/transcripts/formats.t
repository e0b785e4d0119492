One log in every format: threads, levels, clock lines, and what each format has to quote or escape.

  $ make_dump shop.dump <<'END'
  > 100.000 I/trelvo.clock (P 7, T 7): boot=0123456789abcdef0123456789abcdef host=till wall=1764000000.250000 monotonic=100.000000
  > 100.000 I/shop (P 2114, T 2114): listening on 0.0.0.0:8080
  > 100.250 W/kernel (P 0, T 0): usb 1-1: reset, "slow", C:\temp
  > 101.001 E/shop (P 2114, T 2131): =cmd|'/C calc'!A0
  > 101.001 F/shop (P 2114, T 2114): two\x0alines\x0aand a \x09tab
  > 161.001 D/a "b",c (P 5, T 6): \x1b[31mred \xe2\x89\xa4 \xff\x00.
  > 161.500 I/shop (P 2114, T 2114): say "hi"
  > 162.000 I/trelvo.clock (P 7, T 7): boot=0123456789abcdef0123456789abcdef host=till wall=1764000063.250499 monotonic=162.000000
  > 162.000 I/shop (P 2114, T 2114): the clock was set by a second
  > END
  $ trelvoctl decode shop.dump
  2025-11-24 16:00:00.250 I/shop            (P 2114): listening on 0.0.0.0:8080
  2025-11-24 16:00:00.500 W/kernel             (P 0): usb 1-1: reset, "slow", C:\\temp
  2025-11-24 16:00:01.251 E/shop    (P 2114, T 2131): =cmd|'/C calc'!A0
  2025-11-24 16:00:01.251 F/shop            (P 2114): two\x0Alines\x0Aand a \x09tab
  2025-11-24 16:01:01.251 D/a "b",c    (P 5, T    6): \x1B[31mred ≤ \xFF\x00.
  2025-11-24 16:01:01.750 I/shop            (P 2114): say "hi"
  2025-11-24 16:01:03.250 I/shop            (P 2114): the clock was set by a second
  $ trelvoctl decode --monotonic shop.dump
  100.000 I/shop            (P 2114): listening on 0.0.0.0:8080
  100.250 W/kernel             (P 0): usb 1-1: reset, "slow", C:\\temp
  101.001 E/shop    (P 2114, T 2131): =cmd|'/C calc'!A0
  101.001 F/shop            (P 2114): two\x0Alines\x0Aand a \x09tab
  161.001 D/a "b",c    (P 5, T    6): \x1B[31mred ≤ \xFF\x00.
  161.500 I/shop            (P 2114): say "hi"
  162.000 I/shop            (P 2114): the clock was set by a second
  $ trelvoctl decode -o raw --since 2025-11-24T21:31+05:30 --until 2025-11-24T16:01:02Z shop.dump
  \x1b[31mred \xe2\x89\xa4 \xff\x00. (esc)
  say "hi"
  $ TZ=Asia/Kolkata trelvoctl decode -n 1 shop.dump
  2025-11-24 21:31:03.250 I/shop            (P 2114): the clock was set by a second
  $ TZ=Asia/Kolkata trelvoctl decode -o raw --utc --since '2025-11-24 16:01:03' shop.dump
  the clock was set by a second
  $ TZ=Asia/Kolkata trelvoctl decode -n 1 --utc shop.dump
  2025-11-24 16:01:03.250Z I/shop            (P 2114): the clock was set by a second
  $ trelvoctl decode -o threadtime shop.dump
  11-24 16:00:00.250  2114  2114 I shop    : listening on 0.0.0.0:8080
  11-24 16:00:00.500     0     0 W kernel  : usb 1-1: reset, "slow", C:\\temp
  11-24 16:00:01.251  2114  2131 E shop    : =cmd|'/C calc'!A0
  11-24 16:00:01.251  2114  2114 F shop    : two\x0Alines\x0Aand a \x09tab
  11-24 16:01:01.251     5     6 D a "b",c : \x1B[31mred ≤ \xFF\x00.
  11-24 16:01:01.750  2114  2114 I shop    : say "hi"
  11-24 16:01:03.250  2114  2114 I shop    : the clock was set by a second
  $ trelvoctl decode -o json shop.dump
  {"time_ms":100000,"time":"2025-11-24T16:00:00.250+00:00","level":"I","tag":"shop","pid":2114,"tid":2114,"message":"listening on 0.0.0.0:8080","coded":false,"file":"shop.dump"}
  {"time_ms":100250,"time":"2025-11-24T16:00:00.500+00:00","level":"W","tag":"kernel","pid":0,"tid":0,"message":"usb 1-1: reset, \"slow\", C:\\temp","coded":false,"file":"shop.dump"}
  {"time_ms":101001,"time":"2025-11-24T16:00:01.251+00:00","level":"E","tag":"shop","pid":2114,"tid":2131,"message":"=cmd|'/C calc'!A0","coded":false,"file":"shop.dump"}
  {"time_ms":101001,"time":"2025-11-24T16:00:01.251+00:00","level":"F","tag":"shop","pid":2114,"tid":2114,"message":"two\nlines\nand a \ttab","coded":false,"file":"shop.dump"}
  {"time_ms":161001,"time":"2025-11-24T16:01:01.251+00:00","level":"D","tag":"a \"b\",c","pid":5,"tid":6,"message":"\u001b[31mred ≤ �\u0000.","coded":false,"file":"shop.dump","bytes":"1B5B33316D72656420E289A420FF002E"}
  {"time_ms":161500,"time":"2025-11-24T16:01:01.750+00:00","level":"I","tag":"shop","pid":2114,"tid":2114,"message":"say \"hi\"","coded":false,"file":"shop.dump"}
  {"time_ms":162000,"time":"2025-11-24T16:01:03.250+00:00","level":"I","tag":"shop","pid":2114,"tid":2114,"message":"the clock was set by a second","coded":false,"file":"shop.dump"}
  $ TZ=America/St_Johns trelvoctl decode -o json -n 1 shop.dump
  {"time_ms":162000,"time":"2025-11-24T12:31:03.250-03:30","level":"I","tag":"shop","pid":2114,"tid":2114,"message":"the clock was set by a second","coded":false,"file":"shop.dump"}
  $ trelvoctl decode -o csv shop.dump
  time_ms,time,level,tag,pid,tid,message,coded,file,bytes
  100000,2025-11-24T16:00:00.250+00:00,I,shop,2114,2114,listening on 0.0.0.0:8080,false,shop.dump,
  100250,2025-11-24T16:00:00.500+00:00,W,kernel,0,0,"usb 1-1: reset, ""slow"", C:\temp",false,shop.dump,
  101001,2025-11-24T16:00:01.251+00:00,E,shop,2114,2131,'=cmd|'/C calc'!A0,false,shop.dump,
  101001,2025-11-24T16:00:01.251+00:00,F,shop,2114,2114,"two
  lines
  and a \ttab",false,shop.dump, (esc)
  161001,2025-11-24T16:01:01.251+00:00,D,"a ""b"",c",5,6,\x1b[31mred \xe2\x89\xa4 \xef\xbf\xbd\xef\xbf\xbd.,false,shop.dump,1B5B33316D72656420E289A420FF002E (esc)
  161500,2025-11-24T16:01:01.750+00:00,I,shop,2114,2114,"say ""hi""",false,shop.dump,
  162000,2025-11-24T16:01:03.250+00:00,I,shop,2114,2114,the clock was set by a second,false,shop.dump,
  $ trelvoctl decode -o export shop.dump | tr '\0\377' '0f'
  __REALTIME_TIMESTAMP=1764000000250000
  __MONOTONIC_TIMESTAMP=100000000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  PRIORITY=6
  SYSLOG_IDENTIFIER=shop
  _PID=2114
  TID=2114
  MESSAGE=listening on 0.0.0.0:8080
  
  __REALTIME_TIMESTAMP=1764000000500000
  __MONOTONIC_TIMESTAMP=100250000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  PRIORITY=4
  SYSLOG_IDENTIFIER=kernel
  _PID=0
  TID=0
  MESSAGE=usb 1-1: reset, "slow", C:\temp
  
  __REALTIME_TIMESTAMP=1764000001251000
  __MONOTONIC_TIMESTAMP=101001000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  PRIORITY=3
  SYSLOG_IDENTIFIER=shop
  _PID=2114
  TID=2131
  MESSAGE==cmd|'/C calc'!A0
  
  __REALTIME_TIMESTAMP=1764000001251000
  __MONOTONIC_TIMESTAMP=101001000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  PRIORITY=2
  SYSLOG_IDENTIFIER=shop
  _PID=2114
  TID=2114
  MESSAGE
  \x140000000two (esc)
  lines
  and a \ttab (esc)
  
  __REALTIME_TIMESTAMP=1764000061251000
  __MONOTONIC_TIMESTAMP=161001000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  PRIORITY=7
  SYSLOG_IDENTIFIER=a "b",c
  _PID=5
  TID=6
  MESSAGE
  \x100000000\x1b[31mred \xe2\x89\xa4 f0. (esc)
  
  __REALTIME_TIMESTAMP=1764000061750000
  __MONOTONIC_TIMESTAMP=161500000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  PRIORITY=6
  SYSLOG_IDENTIFIER=shop
  _PID=2114
  TID=2114
  MESSAGE=say "hi"
  
  __REALTIME_TIMESTAMP=1764000063250000
  __MONOTONIC_TIMESTAMP=162000000
  _BOOT_ID=0123456789abcdef0123456789abcdef
  _HOSTNAME=till
  PRIORITY=6
  SYSLOG_IDENTIFIER=shop
  _PID=2114
  TID=2114
  MESSAGE=the clock was set by a second
  
  $ trelvoctl decode -o raw shop.dump | tr '\0\377\33' '0fe'
  listening on 0.0.0.0:8080
  usb 1-1: reset, "slow", C:\temp
  =cmd|'/C calc'!A0
  two
  lines
  and a \ttab (esc)
  e[31mred ≤ f0.
  say "hi"
  the clock was set by a second
  $ trelvoctl decode --color always -n 6 shop.dump | tr '\33' e
  e[33m2025-11-24 16:00:00.500 W/kernel             (P 0): usb 1-1: reset, "slow", C:\\tempe[0m
  e[31m2025-11-24 16:00:01.251 E/shop    (P 2114, T 2131): =cmd|'/C calc'!A0e[0m
  e[1;31m2025-11-24 16:00:01.251 F/shop            (P 2114): two\x0Alines\x0Aand a \x09tabe[0m
  e[2m2025-11-24 16:01:01.251 D/a "b",c    (P 5, T    6): \x1B[31mred ≤ \xFF\x00.e[0m
  2025-11-24 16:01:01.750 I/shop            (P 2114): say "hi"
  2025-11-24 16:01:03.250 I/shop            (P 2114): the clock was set by a second

Clock lines are shown where a filter names them; a level, a process, a thread, a text, a time choose.

  $ trelvoctl decode shop.dump 'trelvo.clock:V'
  2025-11-24 16:00:00.250 I/trelvo.clock            (P 7): boot=0123456789abcdef0123456789abcdef host=till wall=1764000000.250000 monotonic=100.000000
  2025-11-24 16:01:03.250 I/trelvo.clock            (P 7): boot=0123456789abcdef0123456789abcdef host=till wall=1764000063.250499 monotonic=162.000000
  $ trelvoctl decode -o raw shop.dump '*:S' 'shop:E'
  =cmd|'/C calc'!A0
  two
  lines
  and a \ttab (esc)
  $ trelvoctl decode -o raw --tid 2131 --pid 0 --pid 2114 shop.dump
  =cmd|'/C calc'!A0
  $ trelvoctl decode -o raw --pid 0 --pid 5 shop.dump | cat -v
  usb 1-1: reset, "slow", C:\temp
  ^[[31mred M-bM-^IM-$ M-^?^@.
  $ trelvoctl decode -o raw -g 'o(n|k) |clock' shop.dump
  listening on 0.0.0.0:8080
  the clock was set by a second
  $ trelvoctl decode -r -n 2 -o raw shop.dump
  the clock was set by a second
  say "hi"
  $ trelvoctl decode -o raw --since '2025-11-24 16:00:01' --until 2025-11-24T21:31:01.25+05:30 shop.dump | cat -v
  =cmd|'/C calc'!A0
  two
  lines
  and a \ttab (esc)
  $ trelvoctl decode --since -61s shop.dump | head -n 1
  2025-11-24 16:01:01.251 D/a "b",c    (P 5, T    6): \x1B[31mred ≤ \xFF\x00.
  $ trelvoctl decode -g nowhere shop.dump
  [6]
