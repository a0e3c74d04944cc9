P=2164
ls -ld /proc/$P/fd; ls -l /proc/$P/fd; stat -c 'size %s' /proc/$P/fd; cat /proc/$P/fdinfo/0; cat /proc/$P/uid_map; readlink /proc/$P/ns/user; readlink /proc/$P/root; cat /proc/$P/io | head -1; head -1 /proc/$P/maps; head -3 /proc/$P/status; cat /proc/$P/stat | cut -c1-80; stat -c %a,%U /proc/$P/fdinfo; ls /proc/$P/fdinfo; cat /proc/$P/auxv | wc -c; readlink /proc/$P/exe
