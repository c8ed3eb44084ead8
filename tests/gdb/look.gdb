# What is looked at in inspected.cpp, live and in a core file; one command a line.
info kt-pools
info kt-pools inspected::many
info kt-pools *inspected::many.px
info kt-pools inspected::weakPool
info kt-pools inspected::made
info kt-pools inspected::closed
info kt-pools inspected::nothing
info kt-pools inspected::noPool
info kt-pools inspected::damagedPool
info kt-pools (KT::KTThreadPool*)0x10
info kt-pools inspected::running
info kt-pools inspected::unheardOf
print inspected::pool
print inspected::weakPool
print inspected::nothing
print *inspected::pool.px
print *inspected::many.px
print *inspected::made.px
print inspected::running
print inspected::noTask
print inspected::gone
print *inspected::base
print *inspected::done.px
print inspected::oddName
print *inspected::oddName.px
print *inspected::sleeper
print *inspected::damagedPool
print *inspected::damagedWorker
print *inspected::damagedTask
print *(KT::KTThreadPool*)0x10
print *(KT::KTThread*)0x10
print *(KT::KTTask*)0x10
print inspected::noPool
print inspected::damagedPool->poolMutex.px
python next(thread for thread in gdb.selected_inferior().threads() if thread.num == 2).switch()
python gdb.newest_frame().older().select()
info kt-pools inspected::made
python print(gdb.selected_thread().num, gdb.selected_frame().level())
