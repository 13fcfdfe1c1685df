#include "generation/CppTakenNames.h"

#include <QRegularExpression>
#include <QSet>
#include <QStringList>

#include <algorithm>

namespace {

/// Words of C++ up to C++20, and what compilers and libraries mean to make one.
constexpr auto words = R"(
alignas alignof and and_eq asm atomic_cancel atomic_commit atomic_noexcept auto bitand bitor
bool break case catch char char8_t char16_t char32_t class compl concept const consteval
constexpr constinit const_cast continue co_await co_return co_yield decltype default delete do
double dynamic_cast else enum explicit export extern false float for friend goto if inline int
long mutable namespace new noexcept not not_eq nullptr operator or or_eq private protected
public reflexpr register reinterpret_cast requires return short signed sizeof static
static_assert static_cast struct switch synchronized template this thread_local throw true try
typedef typeid typename union unsigned using virtual void volatile wchar_t while xor xor_eq
)";

/// Macros of Qt and of the system's headers that are not all capitals, and the types that stand in a generated struct.
constexpr auto macros = R"(
alloca assert assert_perror basename be16toh be32toh be64toh clrbit d_fileno emit errno foreach
forever h_addr h_errno howmany htobe16 htobe32 htobe64 htole16 htole32 htole64 i386
ifa_broadaddr ifa_dstaddr ifc_buf ifc_req ifr_addr ifr_bandwidth ifr_broadaddr ifr_data
ifr_dstaddr ifr_flags ifr_hwaddr ifr_ifindex ifr_map ifr_metric ifr_mtu ifr_name ifr_netmask
ifr_newname ifr_qlen ifr_slave isclr isset issubnormal le16toh le32toh le64toh linux major
makedev math_errhandling minor msg_cbytes no_argument offsetof optional_argument powerof2
pthread_cleanup_pop pthread_cleanup_push qApp qCCritical qCDebug qCInfo qCWarning qCritical
qDebug qFatal qInfo qMove qPrintable qUtf16Printable qUtf8Printable qWarning qint16 qint32
qint64 qint8 quint16 quint32 quint64 quint8 required_argument roundup s6_addr s6_addr16
s6_addr32 sa_handler sa_sigaction sched_priority setbit setjmp si_addr si_addr_lsb si_arch
si_band si_call_addr si_fd si_int si_lower si_overrun si_pid si_pkey si_ptr si_status si_stime
si_syscall si_timerid si_uid si_upper si_utime si_value sigev_notify_attributes
sigev_notify_function sigmask signals sigsetjmp slots st_atime st_ctime st_mtime std stderr
stdin stdout strdupa strndupa timeradd timerclear timercmp timerisset timersub unix va_arg
va_copy va_end va_start
)";

/// What Tessel, Qt, the C library and the system declare outside of any namespace, but for the members of the
/// families below.
constexpr auto globals = R"(
BufferHandlerInterface ConfigurationAndProcessDataBase ConfigurationDataValue DescribedElement
Dl_info Dl_serinfo Dl_serpath ElementProperties Function FunctionTemplate LayoutFingerprint
LayoutLeaf Namespace NumberSlot ProcessDataDefinitions ProcessDataValue
ProcessDataValueSharedPointer ProcessDoubleHandle ProcessValue ProcessValueContainerTemplate
ProcessValueErrorTypeMapDefinitions Qt QtGlobalStatic QtMetaTypePrivate QtPrivate QtSharedPointer
QtStringBuilder RegionCreator RegionInspection RegionLock RegionUser SlotForm Typedef a64l abort
abs accept accept4 access acct acos acosh addrinfo adjtime alarm aligned_alloc alloca alphasort
arc4random arc4random_buf arc4random_uniform asctime asin asinh asprintf at_quick_exit atan atan2
atanh atexit atof atoi atol basename bcmp bcopy bind bindresvport bindresvport6 brk bsearch btowc
bzero c16rtomb c32rtomb c8rtomb cabs cacos cacosh calloc canonicalize canonicalize_file_name carg
casin casinh catan catanh catclose catgets catopen cbrt ccos ccosh ceil cexp cfgetispeed
cfgetospeed cfmakeraw cfsetispeed cfsetospeed cfsetspeed chdir chmod chown chroot cimag clearenv
clearerr clock clock_adjtime clock_getcpuclockid clock_getres clock_gettime clock_nanosleep
clock_settime clog clog10 clone close close_range closedir closefrom closelog cmsghdr
compareElements confstr conj connect copy_file_range copysign cos cosh cpow cproj creal creat crypt
csin csinh csqrt ctan ctanh ctermid ctime cuserid daddl daemon daylight ddivl delete dfmal difftime
dirent dirfd dirname div dl_find_object dladdr dladdr1 dlclose dlerror dlinfo dlmopen dlopen dlsym
dlvsym dmull dprintf drand48 drand48_data drem dsqrtl dsubl dup dup2 dup3 duplocale dysize eaccess
ecvt endgrent endhostent endnetent endnetgrent endprotoent endpwent endrpcent endservent
endusershell entry environ erand48 erf erfc err errx euidaccess eventfd eventfd_read eventfd_write
execl execle execlp execv execve execveat execvp execvpe exit exp exp10 exp2 explicit_bzero expm1
f32addf32x f32addf64 f32addf64x f32divf32x f32divf64 f32divf64x f32fmaf32x f32fmaf64 f32fmaf64x
f32mulf32x f32mulf64 f32mulf64x f32sqrtf32x f32sqrtf64 f32sqrtf64x f32subf32x f32subf64 f32subf64x
f32xaddf64 f32xaddf64x f32xdivf64 f32xdivf64x f32xfmaf64 f32xfmaf64x f32xmulf64 f32xmulf64x
f32xsqrtf64 f32xsqrtf64x f32xsubf64 f32xsubf64x f64addf64x f64divf64x f64fmaf64x f64mulf64x
f64sqrtf64x f64subf64x f_owner_ex fabs faccessat fadd fallocate fchdir fchmod fchmodat fchown
fchownat fclose fcloseall fcntl fcvt fd_mask fd_set fdatasync fdim fdiv fdopen fdopendir
feclearexcept fedisableexcept feenableexcept fegetenv fegetexcept fegetexceptflag fegetmode
fegetround feholdexcept feof feraiseexcept ferror fesetenv fesetexcept fesetexceptflag fesetmode
fesetround fetestexcept fetestexceptflag feupdateenv fexecve fflush ffma ffs fgetc fgetgrent
fgetpos fgetpwent fgets fgetwc fgetws file_handle fileno finite flock flockfile floor fma fmax
fmaximum fmaximum_mag fmaximum_mag_num fmaximum_num fmaxmag fmemopen fmin fminimum fminimum_mag
fminimum_mag_num fminimum_num fminmag fmod fmul fnmatch fopen fopencookie fork fpathconf fprintf
fputc fputs fputwc fputws fread free freeaddrinfo freeifaddrs freelocale freopen frexp fromfp
fromfpx fscanf fsconfig fsconfig_command fseek fseeko fsetpos fsmount fsopen fspick fsqrt fstat
fstatat fstatvfs fsub fsync ftell ftello ftok ftruncate ftrylockfile ftw funlockfile futimens
futimes futimesat fwide fwprintf fwrite fwscanf gai_cancel gai_error gai_strerror gai_suspend gaicb
gamma gcvt getNamurStateTypeAsCharacter getNamurStateTypeAsString getProcessValueStateTypeAsString
get_avphys_pages get_current_dir_name get_nprocs get_nprocs_conf get_phys_pages getaddrinfo
getaddrinfo_a getc getchar getcontext getcpu getcwd getdate getdate_err getdelim getdents64
getdirentries getdomainname getdtablesize getegid getentropy getenv geteuid getgid getgrent
getgrgid getgrnam getgrouplist getgroups gethostbyaddr gethostbyname gethostbyname2 gethostent
gethostid gethostname getifaddrs getipv4sourcefilter getitimer getline getloadavg getlogin
getnameinfo getnetbyaddr getnetbyname getnetent getnetgrent getopt getopt_long getopt_long_only
getpagesize getpass getpayload getpeername getpgid getpgrp getpid getppid getpriority
getprotobyname getprotobynumber getprotoent getpt getpw getpwent getpwnam getpwuid getrandom
getresgid getresuid getrlimit getrpcbyname getrpcbynumber getrpcent getrusage getservbyname
getservbyport getservent getsid getsockname getsockopt getsourcefilter getsubopt gettid
gettimeofday getuid getumask getusershell getw getwc getwchar getwd glob glob_pattern_p globfree
gmtime gnu_dev_major gnu_dev_makedev gnu_dev_minor grantpt group group_filter group_member
group_req group_source_req gsignal h hcreate hdestroy herror hostent hsearch hsearch_data hstrerror
htonl htons hypot iconv iconv_close iconv_open if_freenameindex if_indextoname if_nameindex
if_nametoindex ifaddr ifaddrs ifconf ifmap ifreq ilogb imaxabs imaxdiv in6_addr in6_pktinfo
in6addr_any in6addr_loopback in_addr in_pktinfo index initgroups initstate innetgr insque ioctl
iovec ip6_mtuinfo ip_mreq ip_mreq_source ip_mreqn ip_msfilter ip_opts ipc_perm ipv6_mreq iruserok
iruserok_af isalnum isalpha isascii isatty isblank iscanonical iscntrl isctype isdigit iseqsig
isfdtype isgraph isinff isinfl islower isnanf isnanl isprint ispunct issignaling isspace isupper
iswalnum iswalpha iswblank iswcntrl iswctype iswdigit iswgraph iswlower iswprint iswpunct iswspace
iswupper iswxdigit isxdigit iszero itimerspec itimerval j0 j1 jmp_buf jn jrand48 kill killpg l64a
labs lchmod lchown lcong48 lconv ldexp ldiv lfind lgamma linger link linkat listen llabs lldiv
llogb llrint llround localeconv localtime lockf log log10 log1p log2 logb longjmp lrand48 lrint
lround lsearch lseek lstat lutimes madvise main makecontext malloc mblen mbrlen mbrtoc16 mbrtoc32
mbrtoc8 mbrtowc mbsinit mbsnrtowcs mbsrtowcs mbstowcs mbtowc memccpy memchr memcmp memcpy
memfd_create memfrob memmem memmove mempcpy memrchr memset mincore mkdir mkdirat mkdtemp mkfifo
mkfifoat mknod mknodat mkostemp mkostemps mkstemp mkstemps mktemp mktime mlock mlock2 mlockall mmap
mmsghdr modf mount mount_attr mount_setattr move_mount mprotect mrand48 mremap msgbuf msgctl msgget
msghdr msginfo msgrcv msgsnd msqid_ds msync munlock munlockall munmap name_to_handle_at nan
nanosleep nearbyint netent new newlocale nextafter nextdown nexttoward nextup nftw nice nl_catd
nl_item nl_langinfo nrand48 ntohl ntohs obstack obstack_printf obstack_vprintf on_exit open
open_by_handle_at open_memstream open_tree open_wmemstream openat opendir openlog operator optarg
opterr optind option optopt osockaddr passwd pathconf pause pclose perror pipe pipe2 pkey_alloc
pkey_free pkey_get pkey_mprotect pkey_set poll pollfd popen pow ppoll prctl prctl_mm_map pread
preadv preadv2 preadv64v2 printf prlimit process_madvise process_mrelease process_vm_readv
process_vm_writev profil program_invocation_name program_invocation_short_name protoent pselect
psiginfo psignal ptsname putc putchar putenv putgrent putpwent puts putw putwc putwchar pwrite
pwritev pwritev2 pwritev64v2 q_check_ptr qbswap qbswapFloatHelper qecvt qelem qfcvt qfloat16 qgcvt
qgetenv qint16 qint16_be qint16_le qint32 qint32_be qint32_le qint64 qint64_be qint64_le qint8
qintptr qlonglong qobject_cast qobject_interface_iid qobject_pointer_cast qptrdiff qputenv qrand
qreal qregisterint qregisteruint qsizetype qsnprintf qsort qsrand qstrcmp qstrcpy qstrdup qstricmp
qstrlen qstrncmp qstrncpy qstrnicmp qstrnlen qtTrId quick_exit quint16 quint16_be quint16_le
quint32 quint32_be quint32_le quint64 quint64_be quint64_le quint8 quintptr qulonglong qunicodechar
qunsetenv qvariant_cast qvsnprintf raise rand random random_data rawmemchr rcmd rcmd_af
re_compile_fastmap re_compile_pattern re_match re_match_2 re_pattern_buffer re_registers re_search
re_search_2 re_set_registers re_set_syntax re_syntax_options read readahead readdir readlink
readlinkat readv realloc reallocarray realpath recv recvfrom recvmmsg recvmsg regcomp regerror
regexec regfree remainder remap_file_pages remove remque remquo rename renameat renameat2 revoke
rewind rewinddir rexec rexec_af rindex rint rlimit rmdir round roundeven rpcent rpmatch rresvport
rresvport_af rusage ruserok ruserok_af sbrk scalb scalbln scalbn scandir scandirat scanf
secure_getenv seed48 seekdir select sembuf semctl semget semid_ds seminfo semop semtimedop send
sendmmsg sendmsg sendto servent setbuf setbuffer setcontext setdomainname setegid setenv seteuid
setgid setgrent setgroups sethostent sethostid sethostname setipv4sourcefilter setitimer setjmp
setlinebuf setlocale setlogin setlogmask setnetent setnetgrent setns setpayload setpayloadsig
setpgid setpgrp setpriority setprotoent setpwent setregid setresgid setresuid setreuid setrlimit
setrpcent setservent setsid setsockopt setsourcefilter setstate settimeofday setuid setusershell
setvbuf shmat shmctl shmdt shmget shmid_ds shminfo shutdown sigabbrev_np sigaction sigaddset
sigaltstack sigandset sigblock sigcontext sigdelset sigdescr_np sigemptyset sigevent sigfillset
siggetmask sighold sigignore siginterrupt sigisemptyset sigismember sigjmp_buf siglongjmp signal
signalfd signalfd_siginfo signgam significand sigorset sigpause sigpending sigprocmask sigqueue
sigrelse sigreturn sigset sigsetmask sigstack sigsuspend sigtimedwait sigval sigwait sigwaitinfo
sin sincos sinh sleep snprintf sockaddr sockaddr_in sockaddr_in6 sockaddr_storage sockaddr_un
sockatmark socket socketpair splice sprintf sqrt srand srand48 srandom sscanf ssignal stat statvfs
statx statx_timestamp stderr stdin stdout stpcpy stpncpy strcasecmp strcasestr strcat strchr
strchrnul strcmp strcoll strcpy strcspn strdup strerror strerrordesc_np strerrorname_np strfromd
strfromf strfromf32 strfromf32x strfromf64x strfroml strfry strftime strlen strncasecmp strncat
strncmp strncpy strndup strnlen strpbrk strptime strrchr strsep strsignal strspn strstr strtod
strtof strtof32 strtof32x strtof64x strtoimax strtok strtol strtold strtoq strtoul strtoumax
strtouq strverscmp strxfrm swab swap swapcontext swprintf swscanf symlink symlinkat sync
sync_file_range syncfs syscall sysconf sysinfo syslog system sysv_signal tan tanh tcdrain tcflow
tcflush tcgetattr tcgetpgrp tcgetsid tcphdr tcsendbreak tcsetattr tcsetpgrp tdelete tdestroy tee
telldir tempnam termio termios tfind tgamma tgkill time timegm timelocal timer_create timer_delete
timer_getoverrun timer_gettime timer_settime times timespec timespec_get timespec_getres timeval
timex timezone tm tmpfile tmpnam tms toascii tolower totalorder totalordermag toupper towctrans
towlower towupper trunc truncate tsearch tst_QMutex ttyname ttyslot twalk tzname tzset u_char u_int
u_long u_short ualarm uchar ucred ufromfp ufromfpx uint ulong umask umount umount2 uname ungetc
ungetwc unlink unlinkat unlockpt unsetenv unshare uselocale ushort usleep utimbuf utime utimensat
utimes utsname va_list valloc vasprintf vdprintf verr verrx versionsort vfork vfprintf vfscanf
vfwprintf vfwscanf vhangup vmsplice vprintf vscanf vsnprintf vsprintf vsscanf vswprintf vswscanf
vsyslog vwarn vwarnx vwprintf vwscanf wait wait3 wait4 waitid waitpid warn warnx wcpcpy wcpncpy
wcrtomb wcscasecmp wcscat wcschr wcschrnul wcscmp wcscoll wcscpy wcscspn wcsdup wcsftime wcslen
wcsncasecmp wcsncat wcsncmp wcsncpy wcsnlen wcsnrtombs wcspbrk wcsrchr wcsrtombs wcsspn wcsstr
wcstod wcstof wcstof32 wcstof32x wcstof64x wcstoimax wcstok wcstol wcstold wcstombs wcstoq wcstoul
wcstoumax wcstouq wcswcs wcswidth wcsxfrm wctob wctomb wctrans wctype wcwidth winsize wmemchr
wmemcmp wmemcpy wmemmove wmempcpy wmemset wordexp wordfree wprintf write writev wscanf y0 y1 yn
)";

QSet<QString> setOf(const char *text)
{
    const QStringList list = QString::fromLatin1(text).simplified().split(QLatin1Char(' '),
                                                                          Qt::SkipEmptyParts);
    return {list.cbegin(), list.cend()};
}

bool matches(const QString &name, const QRegularExpression &expression)
{
    return expression.match(name).hasMatch();
}

} // namespace

bool CppTakenNames::isWordOrMacro(const QString &name)
{
    static const QSet<QString> known = setOf(words) + setOf(macros);
    // All capitals are for macros, and Q with a capital behind it for Qt.
    static const QRegularExpression families(
        QStringLiteral("^([A-Z][A-Z0-9_]*$|Q[A-Z_]|(AF|PF|SYS|L|M|P)_|(PRI|SCN)[diouxX])"));
    return known.contains(name) || matches(name, families);
}

bool CppTakenNames::isGlobal(const QString &name)
{
    static const QSet<QString> known = setOf(globals);
    static const QRegularExpression families(
        QStringLiteral("^(epoll|inet6?|inotify|mq|posix|pthread|qt|sched|sem|shm|tcp|timerfd)_"
                       "|^q[A-Z]|_t$"));
    // For other sizes of numbers, other threads, other locales.
    static const QStringList endings =
        QStringLiteral("f l 64 f16 f32 f64 f128 f32x f64x _r _l _np _ns _unlocked f16_r f32_r "
                       "f64_r f128_r f32x_r f64x_r l_r f_r")
            .split(QLatin1Char(' '));
    return known.contains(name) || matches(name, families)
           || std::any_of(endings.cbegin(), endings.cend(), [&name](const QString &ending) {
                  return name.endsWith(ending) && known.contains(name.chopped(ending.size()));
              });
}
