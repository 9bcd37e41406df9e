#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

/// The options of the product family that an administrator may set below one registry key. Every program of the family loads all of
/// them, so that a log tells what is set on a machine, though only a handful mean anything to each program.
struct product_options_t {
    /// Key of the values, below the local machine's root.
    const std::u16string_view key_path = u"SOFTWARE\\Tarno\\Tarno Lodestore";

    bool collect_restore_stat = false;
    bool collect_backup_stat = false;
    bool collect_tape_stat = false;
    bool collect_dd_boost_stat = false;
    bool collect_store_once_stat = false;
    bool collect_nfs_stat = false;
    bool collect_latency_throttling_perf_data = false;
    bool collect_wan_events = false;
    bool wan_live_target_redirect_read = true;
    bool wan_dump_corrupt_blocks = false;
    bool is_loopback_fast_path_enabled = true;
    bool collect_socket_events = false;
    bool collect_cloud_events = false;
    std::uint32_t perf_buf_size = 20971520;
    std::uint32_t buf_reader_max_data_size = 524288000;
    std::uint32_t net_lib_rpc_packet_max_size = 524288000;
    bool agent_debug_mode = false;
    std::uint32_t max_rw_flush_cntr = 64;
    bool check_lz4 = true;
    bool dump_corrupted_traffic = false;
    bool enable_traffic_control = true;
    std::string mini_dump_mode_type = "Normal";
    std::uint32_t mini_dump_mode_mask = 0;
    std::uint32_t repo_busy_timeout_sec = 1800;
    std::uint32_t mta_thread_max_idle_days = 7;
    std::uint32_t pipeline_timeout_secs = 3600;
    std::uint32_t terminate_after_pipeline_timeouts = 0;
    std::uint32_t notification_timeout_sec = 600;
    std::uint32_t tfs12637_delay_ms = 0;
    std::uint32_t tfs12637_period_gb = 0;
    bool workaround_poll_default_callback_work_crash = false;
    bool net_use_share_access = false;
    std::uint32_t vmfs_san_pre_read_buf_size = 4194304;
    std::uint32_t vmfs_san_pre_read_queue_depth = 4;
    std::uint32_t hard_disk_pre_read_buf_size = 4194304;
    std::uint32_t hard_disk_pre_read_queue_depth = 4;
    bool vhd_disk_pre_read = true;
    std::uint32_t vhd_disk_pre_read_buf_size = 4194304;
    std::uint32_t vhd_disk_pre_read_queue_depth = 4;
    bool vhdx_disk_pre_read = true;
    std::uint32_t vhdx_disk_pre_read_buf_size = 4194304;
    std::uint32_t vhdx_disk_pre_read_queue_depth = 4;
    std::uint32_t tape_catalog_xml_buf_size = 1048576;
    std::uint32_t tape_min_file_size_with_compression_and_multistreaming = 128;
    std::uint32_t tape_software_eom_in_mb = 5120;
    std::uint32_t tape_detect_software_eom_every_mb = 2048;
    std::uint32_t tape_time_out_for_opening = 60;
    std::uint32_t max_fb_cache_size_mb = 256;
    std::uint32_t fsr_path_timeout_ms = 60000;
    bool tape_check_block_header_crc = true;
    bool use_long_erase_tape_on_format = false;
    bool trace_bind_retries = false;
    bool agent_emulate_tape_alerts = false;
    bool tape_ignore_software_eom = false;
    std::int32_t tape_partition_type = 3;
    std::int32_t tape_retry_count_per_operation = 5;
    bool tape_agent_io_retries = false;
    std::int32_t tape_retry_sleep_in_ms = 100;
    std::int32_t tape_maximum_skipping_blocks_time_span_in_sec = 120;
    std::uint32_t rpc_retry_delay_ms = 10000;
    std::uint32_t rpc_retry_count = 10;
    bool rpc_retry_connect = false;
    bool rpc_unique_binding_disable = false;
    std::uint32_t rpc_invoker_count_warning = 512;
    bool rpc_invoker_default_strategy = false;
    bool rpc_serial_invoker_enable_log = false;
    std::uint32_t rpc_file_handle_idle_hours = 1;
    bool hot_add_ignore_locked_volumes = false;
    std::uint32_t wait_for_multiple_objects_timeout_sec = 600;
    std::uint32_t vdl_open_timeout_sec = 600;
    bool smb_keep_alive_enabled = true;
    std::uint32_t smb_keep_alive_sec = 60;
    std::uint32_t vddk_op_timeout_sec = 900;
    std::uint32_t xdr_buf_initial_size = 65536;
    bool vddk_non_unique_uuid_patch = true;
    std::string vddk_config_path;
    bool vddk_vm_search_patch = true;
    std::uint32_t vddk_lib_curl_dns_init_method = 0;
    std::uint32_t vddk_hotadd_sync_timeout_ms = 60000;
    std::uint32_t vddk_logon_retry_limit = 5;
    std::uint32_t vddk_pre_read_queue_depth = 4;
    std::string vddk_version;
    std::uint32_t vddk_extra_flags = 0;
    bool vddk_aio_patch_enabled = true;
    bool vddk_async_nfc_blocked = false;
    std::uint32_t vddk_async_timeout = 600;
    bool vddk_global_uuid_patch = true;
    bool vmc_query_escape_enabled = true;
    std::uint32_t nfc_max_sectors_to_read_write_once = 2048;
    std::uint32_t fs_aware_cache_block_size = 65536;
    std::uint32_t fs_aware_cache_block_num = 512;
    std::uint32_t fs_aware_item_to_delete_min_size = 1048576;
    std::uint32_t fs_aware_meta_timeout_ms = 600000;
    bool out_of_proc_dump_gen = false;
    bool disable_patch_prefetcher = false;
    bool use_tlsv12_for_nfc = true;
    std::uint32_t max_tape_block_size = 16777216;
    std::uint32_t tape_transfer_block_size = 2097152;
    bool tape_hw_encryption = true;
    std::uint32_t ntf_cli_srv_exc_timeout_ms = 600000;
    std::uint32_t azure_reconnects_count = 5;
    bool async_extent_read = true;
    std::uint32_t tape_block_size = 65536;
    bool tape_block_size_found = false;              ///< whether the value was set
    std::uint64_t stg_oversize_mb_limit = 15728640;  ///< set in megabytes or in gigabytes
    std::uint32_t max_upload_stop_timeout_ms = 7200000;
    std::uint32_t srv_session_conn_await_timeout_ms = 3600000;
    std::uint32_t iscsi_mount_timeout_ms = 600000;
    bool vmfs_log_enabled = false;
    std::uint32_t vmfs_cached_block_size = 1048576;
    std::uint32_t vmfs_cached_blocks_count = 64;
    std::uint32_t overall_banks_limit = 1024;
    std::uint32_t dirty_banks_limit = 256;
    std::uint32_t clean_banks_limit = 768;
    bool disable_incremental_meta_flush = false;
    bool disable_stg_key_validation = false;
    std::uint32_t restore_cached_blocks_count = 1024;
    bool vds_rescan_enumerate_only = false;
    bool vds_rescan_providers_only = false;
    std::uint32_t vds_svc_rescan_delay_ms = 1000;
    std::uint32_t vds_svc_rescan_timeout_ms = 300000;
    bool disk_make_writable_compare_controller_inquery = true;
    bool disable_target_dedup = false;
    std::uint32_t throttling_async_sync_percent = 50;
    std::uint32_t throttling_max_percent = 90;
    std::string temp_drv_cache_dir;
    std::string write_cache_directory;
    bool iscsi_force_bind_any = false;
    std::uint32_t vdk_mutex_wait_timeout_sec = 600;
    std::uint32_t win_file_write_retry_count = 50;
    std::uint32_t win_file_write_retry_max_timeout_msec = 1000;
    std::uint32_t s3_multipart_upload_min_parts = 2;
    std::uint32_t s3_concurrent_task_limit = 64;
    std::uint32_t s3_request_timeout_sec = 60;
    std::uint32_t s3_request_retry_total_timeout_sec = 1800;
    bool s3_force_virtual_hosted_style = false;
    std::uint32_t s3_multi_object_delete_limit = 1000;
    std::uint32_t azure_concurrent_task_limit = 64;
    std::uint32_t disk_lvid_retry_count = 10;
    std::uint32_t disk_lvid_retry_timeout_ms = 1000;
    std::uint32_t nfc_max_size_for_rewriting_retry = 1048576;
    std::uint32_t nfc_rewriting_retry_count = 5;
    std::uint32_t nfc_rewriting_retry_timeout_ms = 1000;
    std::uint32_t pipe_message_queue_max_size = 1024;
    std::string custom_temp_dir_path;

    /// Takes over what the registry holds and logs a line for each value that is set. Nothing here fails: a value that can't be
    /// read is told in the log and leaves its default.
    void load();
};

/// The process's options: with their defaults on first use, loaded once at its start, read without a lock afterwards.
[[nodiscard]] product_options_t& product_options();

/// One option: its value below the key and its member of the record.
struct product_option_row {
    using member_t = std::variant<bool product_options_t::*, std::uint32_t product_options_t::*, std::int32_t product_options_t::*,
                                  std::uint64_t product_options_t::*, std::string product_options_t::*>;

    std::u16string_view name;
    std::string_view title;  ///< for the log; empty: the name is shown
    member_t member;
    std::u16string_view unless = {};           ///< a value whose presence makes this one count for nothing
    std::uint64_t unit = 1;                    ///< the value is multiplied by this
    std::uint32_t minimum = 0;                 ///< a lower value is raised to this
    bool product_options_t::*found = nullptr;  ///< set when the value is there
};

/// All options in the order of loading.
[[nodiscard]] std::span<const product_option_row> product_option_rows();
