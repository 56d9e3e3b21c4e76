@
    function touch(t) { count = count + step; count_changed = count; }