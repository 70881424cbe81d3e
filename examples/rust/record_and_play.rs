//! A host in Rust: records a file in asynchronous mode, plays it back and compares.
//!
//!     record_and_play [DIRECTORY]

mod cachefile;

use cachefile::*;
use std::ffi::{CStr, CString};
use std::os::raw::{c_char, c_void};
use std::ptr::{null_mut, NonNull};

const RECORD_ID: u32 = 5;
const RUN: u32 = 4096;

fn text(pointer: *const c_char) -> String {
    // The texts of the library are valid while it is loaded.
    unsafe { CStr::from_ptr(pointer) }.to_string_lossy().into_owned()
}

/// Converts a result code to a Rust result.
fn check(step: &str, result: i32) -> Result<(), String> {
    match result {
        0 => Ok(()),
        code => Err(format!("{}: {}", step, text(unsafe { cachefile_result_text(code) }))),
    }
}

fn c_string(text: &str) -> Result<CString, String> {
    CString::new(text).map_err(|error| error.to_string())
}

/// The state that the callbacks use. They run on this thread, inside wait_and_run or shutdown. The
/// host must not hold a reference to it during these calls, so it uses a raw pointer.
#[derive(Default)]
struct Host {
    opens: u32,
    failure: Option<String>,
    played: Vec<u8>,
    last_run: Option<u32>,
}

extern "C" fn on_status(user: *mut c_void, operation: i32, result: i32) {
    let host = unsafe { &mut *(user as *mut Host) };
    if operation == OP_OPEN {
        host.opens += 1;
    }
    if let Err(reason) = check("file operation", result) {
        host.failure = Some(reason);
    }
}

extern "C" fn on_data(
    user: *mut c_void,
    _request: *mut c_void,
    data: *mut c_void,
    length: u32,
    _info: *const DataInfo,
) {
    let host = unsafe { &mut *(user as *mut Host) };
    // This host owns the memory and frees it with the library's function.
    let bytes = unsafe { std::slice::from_raw_parts(data as *const u8, length as usize) };
    host.played.extend_from_slice(bytes);
    unsafe { cachefile_free(data) };
    host.last_run = Some(length);
}

fn record(host: NonNull<Host>, bytes: &[u8]) -> Result<(), String> {
    let callbacks = Callbacks::new(host.as_ptr() as *mut c_void, on_status, None);
    let name = c_string("samples.raw")?;
    let mut writer = null_mut();
    unsafe { check("create", cachefile_writer_create(RECORD_ID, ASYNC, &callbacks, &mut writer))? };
    let recorded = unsafe { write_pieces(writer, &name, bytes) };
    // The shutdown comes before the destroy, so that on_status receives even the last report.
    unsafe {
        cachefile_shutdown();
        cachefile_writer_destroy(writer);
    }
    recorded
}

unsafe fn write_pieces(writer: *mut Writer, name: &CStr, bytes: &[u8]) -> Result<(), String> {
    let mut file = 0;
    check("open", cachefile_writer_open(writer, name.as_ptr(), &mut file))?;
    for piece in bytes.chunks(1000) {
        let data = piece.as_ptr() as *const c_void;
        check("write", cachefile_writer_append(writer, file, data, piece.len() as u32))?;
    }
    check("close", cachefile_writer_close(writer, file))
}

fn play(host: NonNull<Host>) -> Result<(), String> {
    let callbacks = Callbacks::new(host.as_ptr() as *mut c_void, on_status, Some(on_data));
    let name = c_string("samples.raw")?;
    let mut player = null_mut();
    unsafe { check("create", cachefile_player_create(RECORD_ID, ASYNC, &callbacks, &mut player))? };
    let played = unsafe { read_to_end(host, player, &name) };
    unsafe { cachefile_player_destroy(player) };
    played
}

unsafe fn read_to_end(
    host: NonNull<Host>,
    player: *mut Player,
    name: &CStr,
) -> Result<(), String> {
    let describer = Describer::new(4, 1004, 4);
    let info = DataInfo::new(4, 1004, 4);
    check("open", cachefile_player_open_record(player, name.as_ptr(), &describer, 0))?;
    let mut offset = 0;
    loop {
        (*host.as_ptr()).last_run = None;
        check("read", cachefile_player_read_alloc(player, &info, offset, RUN, null_mut()))?;
        while (*host.as_ptr()).last_run.is_none() {
            check("run", cachefile_caller_wait_and_run(1000, null_mut()))?;
        }
        match (*host.as_ptr()).last_run {
            Some(RUN) => offset += RUN,
            _ => return Ok(()), // a short read means the end of the file
        }
    }
}

fn run(directory: &str, host: NonNull<Host>) -> Result<usize, String> {
    let bytes: Vec<u8> = (0..100_000u32).map(|n| (n * 7 / 3) as u8).collect();
    let home = c_string(directory)?;
    unsafe { check("directory", cachefile_set_home_dir(home.as_ptr()))? };
    record(host, &bytes)?;
    play(host)?;
    let host = unsafe { &*host.as_ptr() };
    if let Some(reason) = &host.failure {
        return Err(reason.clone());
    }
    if host.opens != 2 || host.played != bytes || unsafe { cachefile_lost_bytes() } > 0 {
        return Err(format!("{} opens reported, {} bytes played", host.opens, host.played.len()));
    }
    Ok(bytes.len())
}

fn main() {
    let directory = std::env::args().nth(1).unwrap_or_else(|| "recordings".to_string());
    let host = Box::into_raw(Box::new(Host::default()));
    // All calls are made on the main thread. Without this, asynchronous opens are refused.
    let outcome = check("attach", unsafe { cachefile_caller_attach() })
        .and_then(|_| run(&directory, NonNull::new(host).unwrap()));
    unsafe {
        cachefile_shutdown();
        cachefile_caller_detach();
        drop(Box::from_raw(host));
    }
    match outcome {
        Ok(count) => println!(
            "recorded and played {} bytes with library {}",
            count,
            text(unsafe { cachefile_version() })
        ),
        Err(reason) => {
            eprintln!("record_and_play: {}", reason);
            std::process::exit(1);
        }
    }
}
