//! Rust declarations for a part of cachefile_c.h, which has the comments.
//!
//! Each struct contains its size, so the library refuses one that is declared too small here.

use std::mem::size_of;
use std::os::raw::{c_char, c_void};

pub const ASYNC: u32 = 1;
pub const OP_OPEN: i32 = 1;

pub enum Writer {}
pub enum Player {}

#[repr(C)]
pub struct Describer {
    pub struct_size: usize,
    pub file_id: u32,
    pub extra_info: u32,
    pub data_type: u16,
    pub file_kind: u8,
    pub reserved: [u8; 5],
}

#[repr(C)]
pub struct DataInfo {
    pub struct_size: usize,
    pub file_id: u32,
    pub data_length: u32,
    pub data_type: u16,
    pub file_kinds: u8,
    pub reserved: [u8; 5],
}

pub type OnStatus = extern "C" fn(user: *mut c_void, operation: i32, result: i32);
pub type OnData = extern "C" fn(
    user: *mut c_void,
    request: *mut c_void,
    data: *mut c_void,
    length: u32,
    info: *const DataInfo,
);

#[repr(C)]
pub struct Callbacks {
    pub struct_size: usize,
    pub user: *mut c_void,
    pub on_status: Option<OnStatus>,
    pub on_data: Option<OnData>,
}

impl Describer {
    pub fn new(data_type: u16, file_id: u32, file_kind: u8) -> Describer {
        let struct_size = size_of::<Describer>();
        Describer { struct_size, file_id, extra_info: 0, data_type, file_kind, reserved: [0; 5] }
    }
}

impl DataInfo {
    pub fn new(data_type: u16, file_id: u32, file_kinds: u8) -> DataInfo {
        let struct_size = size_of::<DataInfo>();
        DataInfo { struct_size, file_id, data_length: 0, data_type, file_kinds, reserved: [0; 5] }
    }
}

impl Callbacks {
    pub fn new(user: *mut c_void, on_status: OnStatus, on_data: Option<OnData>) -> Callbacks {
        let struct_size = size_of::<Callbacks>();
        Callbacks { struct_size, user, on_status: Some(on_status), on_data }
    }
}

#[link(name = "cachefile")]
extern "C" {
    pub fn cachefile_result_text(result: i32) -> *const c_char;
    pub fn cachefile_version() -> *const c_char;
    pub fn cachefile_set_home_dir(directory: *const c_char) -> i32;
    pub fn cachefile_lost_bytes() -> u64;
    pub fn cachefile_shutdown() -> i32;
    pub fn cachefile_free(memory: *mut c_void);

    pub fn cachefile_caller_attach() -> i32;
    pub fn cachefile_caller_detach() -> i32;
    pub fn cachefile_caller_wait_and_run(milliseconds: u32, count: *mut u32) -> i32;

    pub fn cachefile_writer_create(
        record_id: u32,
        flags: u32,
        callbacks: *const Callbacks,
        writer: *mut *mut Writer,
    ) -> i32;
    pub fn cachefile_writer_destroy(writer: *mut Writer);
    pub fn cachefile_writer_open(writer: *mut Writer, name: *const c_char, file: *mut u32) -> i32;
    pub fn cachefile_writer_append(
        writer: *mut Writer,
        file: u32,
        data: *const c_void,
        length: u32,
    ) -> i32;
    pub fn cachefile_writer_close(writer: *mut Writer, file: u32) -> i32;

    pub fn cachefile_player_create(
        record_id: u32,
        flags: u32,
        callbacks: *const Callbacks,
        player: *mut *mut Player,
    ) -> i32;
    pub fn cachefile_player_destroy(player: *mut Player);
    pub fn cachefile_player_open_record(
        player: *mut Player,
        name: *const c_char,
        describer: *const Describer,
        writable: i32,
    ) -> i32;
    pub fn cachefile_player_read_alloc(
        player: *mut Player,
        info: *const DataInfo,
        offset: u32,
        length: u32,
        request: *mut c_void,
    ) -> i32;
}
