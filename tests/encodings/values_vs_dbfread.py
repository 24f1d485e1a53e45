#!/usr/bin/python3
"""Typed cell values of every corpus table against python3-dbfread's.

Usage: values_vs_dbfread.py LIBRARY CORPUS_DIR

LIBRARY is libqzk_file_dbf.so. For a sanitizer build, preload its runtimes:
  LD_PRELOAD=$(gcc -print-file-name=libasan.so):$(gcc -print-file-name=libubsan.so) \
  ASAN_OPTIONS=detect_leaks=0 values_vs_dbfread.py build/dev/src/libqzk_file_dbf.so CORPUS

Each table is opened read-only through the library; dbfread reads it with
the encoding the library chose (char_decode_errors='strict', load=True);
tables dbfread refuses are left out. Live records are paired in order.
Prints, field type by field type, cells compared and cells equal, then up
to six differences per type.
"""
import ctypes, os, sys, datetime, decimal, collections
import dbfread
lib = ctypes.CDLL(sys.argv[1])
class V(ctypes.Structure):
    _fields_=[("kind",ctypes.c_int),("i",ctypes.c_longlong),("d",ctypes.c_double),("text",ctypes.c_void_p),("length",ctypes.c_size_t)]
lib.qz_dbf_open_ex.restype=ctypes.c_void_p; lib.qz_dbf_open_ex.argtypes=[ctypes.c_char_p,ctypes.c_uint]
lib.qz_dbf_get_value.argtypes=[ctypes.c_void_p,ctypes.c_uint,ctypes.c_uint,ctypes.POINTER(V)]; lib.qz_dbf_get_value.restype=ctypes.c_bool
lib.qz_dbf_get_deleted.argtypes=[ctypes.c_void_p,ctypes.c_uint]
lib.qz_dbf_close.argtypes=[ctypes.c_void_p]
lib.qz_dbf_get_encoding.argtypes=[ctypes.c_void_p,ctypes.c_char_p,ctypes.c_size_t]
lib.qz_dbf_get_nf.argtypes=[ctypes.c_void_p]; lib.qz_dbf_get_nf.restype=ctypes.c_uint
corpus=sys.argv[2]
stats=collections.defaultdict(lambda:[0,0]); diffs=collections.defaultdict(list)
def ours(v):
    k=v.kind; raw=ctypes.string_at(v.text,v.length) if v.length else b''
    if k==0: return None
    if k==1: return bool(v.i)
    if k==2: return v.i
    if k==3: return v.d
    if k==4: return decimal.Decimal(raw.decode())
    if k==5: return datetime.date(v.i//10000,v.i//100%100,v.i%100)
    if k==6: return datetime.datetime(1970,1,1)+datetime.timedelta(milliseconds=v.i)
    if k==7: return raw.decode('utf-8','replace')
    return raw
for root,_,fs in os.walk(corpus):
  for f in sorted(fs):
    if not f.lower().endswith('.dbf'): continue
    p=os.path.join(root,f)
    h=lib.qz_dbf_open_ex(p.encode(),1)
    if not h: continue
    name=ctypes.create_string_buffer(64); lib.qz_dbf_get_encoding(h,name,64)
    enc=name.value.decode()
    try:
        t=dbfread.DBF(p,encoding=enc.lower().replace('mac-cyrillic','mac_cyrillic'),load=True,recfactory=lambda items:[v for k,v in items],char_decode_errors='strict',ignore_missing_memofile=False)
        recs=t.records; flds=t.fields
    except Exception as e:
        lib.qz_dbf_close(h); continue
    if lib.qz_dbf_get_nf(h)!=len(flds): lib.qz_dbf_close(h); continue
    live=[r for r in range(len(recs)+len(t.deleted)+5) if lib.qz_dbf_get_deleted(h,r)==0]
    for r,rec in zip(live,recs):
        for fi,fd in enumerate(flds):
            v=V()
            if not lib.qz_dbf_get_value(h,fi,r,ctypes.byref(v)): o='<fail>'
            else: o=ours(v)
            th=rec[fi]
            if isinstance(th,str) and fd.type=='C': pass
            eq = (o==th) or (isinstance(th,float) and isinstance(o,(float,int)) and abs(o-th)<=1e-9*max(1,abs(th))) or (isinstance(th,int) and not isinstance(th,bool) and isinstance(o,float) and o==th)
            s=stats[fd.type]; s[0]+=1; s[1]+=eq
            if not eq and len(diffs[fd.type])<6: diffs[fd.type].append((os.path.relpath(p,corpus),fd.name,r,repr(o)[:40],repr(th)[:40]))
    lib.qz_dbf_close(h)
tot=[0,0]
for k,(n,e) in sorted(stats.items()):
    print("%s  cells %7d  equal %7d"%(k,n,e)); tot[0]+=n; tot[1]+=e
print("all cells %d equal %d (%.3f%%)"%(tot[0],tot[1],100.0*tot[1]/max(1,tot[0])))
for k,l in diffs.items():
    for d in l: print(k,*d)
